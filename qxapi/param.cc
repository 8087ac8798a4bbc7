// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include "qxapi/config_line.h"
#include "qxapi/guard.h"
#include "qxapi/posix.h"
#include "qxapi/records.h"

namespace rdm::posix_host {
namespace {

HostText copy_unescaped(std::string_view value) {
  HostText copy(static_cast<char *>(host_alloc(value.size() + 1)));
  if (copy) copy.get()[config_line::unescape(value, copy.get())] = '\0';
  return copy;
}

/// A list of up to this many pairs is searched as fast as an index.
constexpr size_t few_pairs = 8;

/// The bytes of room for each slot: a pair with short texts.
constexpr size_t slot_size = 96;
constexpr int most_slots = 32;

IndexedPair *as_indexed(host_param *pair) { return reinterpret_cast<IndexedPair *>(pair); }

bool is_indexed(const pblock &b) { return b.index.size != 0; }

bool has_renamed_pair(const pblock &b) {
  return is_indexed(b) && b.lent != nullptr && NameIndex<IndexedPair>::is_stale(*b.lent);
}

/// search returns the first pair of a name, or null.
host_param *search(const char *name, const pblock &b) {
  if (is_indexed(b) && !has_renamed_pair(b)) {
    IndexedPair *found = b.index.find(name);
    return found != nullptr ? &found->pair : nullptr;
  }
  host_param *pair = b.first;
  while (pair != nullptr && std::strcmp(pair->name, name) != 0) pair = pair->next;
  return pair;
}

/// index_all adds every pair to the index, in list order. It stops if allocation fails for the first buckets.
void index_all(pblock &b) {
  for (host_param *pair = b.first; pair != nullptr; pair = pair->next)
    if (!b.index.add(as_indexed(pair))) return;
}

/// make_in_room makes a pair in the room of a block, or returns null if it does not fit.
IndexedPair *make_in_room(std::string_view name, std::string_view value, pblock &b) {
  const size_t size = size_in_room(name, value);
  if (!b.has_room(size)) return nullptr;
  auto *pair = std::construct_at(reinterpret_cast<IndexedPair *>(b.unused));
  b.unused += size;
  pair->pair.name = reinterpret_cast<char *>(pair + 1);
  pair->pair.value = pair->pair.name + name.size() + 1;
  pair->pair.name[name.copy(pair->pair.name, name.size())] = '\0';
  pair->pair.value[value.copy(pair->pair.value, value.size())] = '\0';
  return pair;
}

/// make_own makes a pair of three blocks of host_alloc, or returns null if allocation fails.
IndexedPair *make_own(const char *name, const char *value) {
  HostPtr<IndexedPair> made = host_new<IndexedPair>();
  HostText name_copy(made ? host_strdup(name) : nullptr);
  HostText value_copy(name_copy ? host_strdup(value) : nullptr);
  if (!value_copy) return nullptr;
  made->pair.name = name_copy.release();
  made->pair.value = value_copy.release();
  return made.release();
}

void chain(pblock &b, IndexedPair *added) {
  added->link = b.last;
  *b.last = &added->pair;
  b.last = &added->pair.next;
  ++b.count;
  if (is_indexed(b))
    b.index.add(added);
  else if (b.count > few_pairs)
    index_all(b);
}

/// unchain removes a pair, the first of its name, from the list and the index.
void unchain(pblock &b, IndexedPair *removed) {
  if (is_indexed(b)) b.index.take(removed->name());
  if (b.lent == removed) b.lent = nullptr;
  host_param *const next = std::exchange(removed->pair.next, nullptr);
  *removed->link = next;
  (next != nullptr ? as_indexed(next)->link : b.last) = removed->link;
  --b.count;
}

/// move_out replaces a pair in the room of a block by a copy of its own, which it returns, or null if allocation fails.
IndexedPair *move_out(pblock &b, IndexedPair *pair) {
  IndexedPair *const own = make_own(pair->pair.name, pair->pair.value);
  if (own == nullptr) return nullptr;
  own->link = pair->link;
  own->pair.next = pair->pair.next;
  *own->link = &own->pair;
  (own->pair.next != nullptr ? as_indexed(own->pair.next)->link : b.last) = &own->pair.next;
  if (is_indexed(b)) b.index.replace(pair, own);
  return own;
}

}  // namespace

pblock *param_create(int slots) {
  const size_t size = sizeof(pblock) + static_cast<size_t>(std::clamp(slots, 1, most_slots)) * slot_size;
  auto *memory = static_cast<char *>(host_alloc(size));
  if (memory == nullptr) return nullptr;
  auto *block = std::construct_at(reinterpret_cast<pblock *>(memory));
  block->last = &block->first;
  block->unused = memory + sizeof(pblock);
  block->end = memory + size;
  return block;
}

void param_free(pblock *b) {
  if (b == nullptr) return;
  for (host_param *entry = b->first; entry != nullptr;) {
    host_param *next = entry->next;
    if (!b->has_in_room(as_indexed(entry))) param_free_entry(entry);
    entry = next;
  }
  b->index.release();
  host_free(b);
}

char *param_find(const char *name, const pblock *b) {
  const host_param *found = search(name, *b);
  return found != nullptr ? found->value : nullptr;
}

host_param *param_find_entry(const char *name, pblock *b, int remove) {
  if (has_renamed_pair(*b)) {
    b->index.clear();
    index_all(*b);
  }
  IndexedPair *found = as_indexed(search(name, *b));
  if (found != nullptr && b->has_in_room(found)) found = move_out(*b, found);
  if (found == nullptr) return nullptr;
  if (remove != 0)
    unchain(*b, found);
  else
    b->lent = found;
  return &found->pair;
}

int param_add(const char *name, const char *value, pblock *b) {
  IndexedPair *added = make_in_room(name, value, *b);
  if (added == nullptr) added = make_own(name, value);
  if (added == nullptr) return -1;
  chain(*b, added);
  return 0;
}

void param_free_entry(host_param *e) {
  if (e == nullptr) return;
  host_free(e->name);
  host_free(e->value);
  host_free(e);
}

int param_parse(const char *line, pblock *b) {
  int pairs = 0;
  std::string_view rest = line;
  while (const std::optional<config_line::Word> word = config_line::take_word(rest)) {
    if (!word->is_pair || word->name.empty()) continue;
    const HostText name = copy_text(word->name);
    const HostText value = copy_unescaped(word->value);
    if (!name || !value || host_param_add(name.get(), value.get(), b) != 0) return -1;
    ++pairs;
  }
  return pairs;
}

}  // namespace rdm::posix_host
