// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "faults/operations.h"
#include "libcs/guard.h"
#include "support/files.h"

namespace rdm::faults {
namespace {

using Texts = std::vector<std::string>;

struct QueueDeleter {
  void operator()(csqueue *queue) const { csqueue_free(queue); }
};
using QueuePtr = std::unique_ptr<csqueue, QueueDeleter>;

struct LevelsDeleter {
  void operator()(cspriq *queue) const { cspriq_free(queue); }
};
using PriqPtr = std::unique_ptr<cspriq, LevelsDeleter>;

template <typename Guard, uint32_t (*create)(cslist **)>
Guard make() {
  cslist *made = nullptr;
  create(&made);
  return Guard(made);
}

Texts texts_of(const cslist *list) {
  Texts texts;
  for (const cslist_node *node = list->head; node != nullptr; node = node->next)
    texts.emplace_back(static_cast<const char *>(node->data));
  return texts;
}

ListPtr list_of(const Texts &texts) {
  auto list = make<ListPtr, cslist_create>();
  for (const std::string &text : texts) cslist_append(list.get(), text.c_str());
  return list;
}

HashTablePtr table_of(const Texts &texts) {
  cshashtable *table = nullptr;
  cshashtable_create(3, &table);
  for (const std::string &text : texts) cshashtable_insert(table, text.c_str(), text.c_str());
  return HashTablePtr(table);
}

char items[] = "abcdefgh";

/// create covers the constructors: a container that works, or null and the status 1.
template <typename Guard, uint32_t (*make_one)(cslist **)>
Verdict create(Memory &memory) {
  auto *made = reinterpret_cast<cslist *>(items);
  const uint32_t status = memory.failing([&] { return make_one(&made); });
  const Guard owned(made);
  return judge(status == 0 && owned && cslist_count(made) == 0, status == 1 && !owned);
}

Verdict append_item(Memory &memory) {
  const ListPtr list = list_of({"a"});
  const uint32_t status = memory.failing([&] { return cslist_append(list.get(), "b"); });
  const bool goes_on = cslist_append(list.get(), "c") == 0;
  return judge(goes_on && status == 0 && texts_of(list.get()) == Texts{"a", "b", "c"},
               goes_on && status == 1 && texts_of(list.get()) == Texts{"a", "c"});
}

/// On an empty list: elsewhere the new node takes the place of the first, which stays with nobody.
Verdict prepend_item(Memory &memory) {
  const ListPtr list = list_of({});
  const uint32_t status = memory.failing([&] { return cslist_prepend(list.get(), "b"); });
  return judge(status == 0 && texts_of(list.get()) == Texts{"b"}, status == 1 && texts_of(list.get()).empty());
}

template <typename Callback, uint32_t (*set)(cslist *, Callback), Callback callback>
Verdict set_callback(Memory &memory) {
  const ListPtr list = list_of({});
  return judge(memory.failing([&] { return set(list.get(), callback); }) == 0, false);
}

Verdict behead(Memory &memory) {
  const ListPtr list = list_of({"a", "b"});
  const std::unique_ptr<char, Deleter<std::free>> item(
      static_cast<char *>(memory.failing([&] { return cslist_behead(list.get()); })));
  return judge(std::strcmp(item.get(), "a") == 0 && texts_of(list.get()) == Texts{"b"}, false);
}

Verdict delete_item(Memory &memory) {
  const ListPtr list = list_of({"a", "b"});
  const uint32_t status = memory.failing([&] { return cslist_delete(list.get(), "b"); });
  return judge(status == 0 && texts_of(list.get()) == Texts{"a"}, false);
}

Verdict find(Memory &memory) {
  const ListPtr list = list_of({"a", "b"});
  return judge(memory.failing([&] { return cslist_find(list.get(), "b"); }) == list->tail->data, false);
}

Verdict apply(Memory &memory) {
  const ListPtr list = list_of({"a", "b"});
  memory.failing([&] { cslist_apply(list.get(), [](void *item) { *static_cast<char *>(item) = 'x'; }); });
  return judge(texts_of(list.get()) == Texts{"x", "x"}, false);
}

Verdict count(Memory &memory) {
  const ListPtr list = list_of({"a", "b"});
  return judge(memory.failing([&] { return cslist_count(list.get()); }) == 2, false);
}

Verdict do_free(Memory &memory) {
  cslist *list = list_of({"a", "b"}).release();
  return judge(memory.failing([&] { return cslist_do_free(list, 1); }) == 0, false);
}

Verdict callbacks(Memory &memory) {
  return judge(memory.failing([] {
    cslist_free_nop(items);
    return cslist_copy_nop(items) == items && cslist_cmp_nop(items, "abcd") == 0;
  }),
               false);
}

/// A bucket that memory failed for takes no items, and says so.
Verdict create_table(Memory &memory) {
  cshashtable *made = nullptr;
  const uint32_t status = memory.failing([&] { return cshashtable_create(3, &made); });
  const HashTablePtr table(made);
  if (!table) return judge(false, status == 1);
  int taken = 0;
  for (const char *key : {"a", "b", "c", "d", "e", "f"}) {
    const bool is_taken = cshashtable_insert(made, key, key) == 0;
    const char *found = static_cast<char *>(cshashtable_find(made, key));
    if (status != 0 || is_taken != (found != nullptr && std::strcmp(found, key) == 0)) return Verdict::wrong;
    taken += is_taken ? 1 : 0;
  }
  if (made->count != taken) return Verdict::wrong;
  return taken == 6 ? Verdict::right : Verdict::incomplete;
}

Verdict insert(Memory &memory) {
  const HashTablePtr table = table_of({"a"});
  const uint32_t status = memory.failing([&] { return cshashtable_insert(table.get(), "b", "b"); });
  const void *found = cshashtable_find(table.get(), "b");
  return judge(status == 0 && found != nullptr && table->count == 2,
               status == 1 && found == nullptr && table->count == 1);
}

Verdict set_of_table(Memory &memory) {
  const HashTablePtr table = table_of({});
  return judge(memory.failing([&] {
    return cshashtable_set_hash(table.get(), cshashtable_hf_default) == 0 &&
           cshashtable_set_copy(table.get(), cslist_copy_nop) == 0 &&
           cshashtable_set_compare(table.get(), cslist_cmp_nop) == 0 &&
           cshashtable_set_free(table.get(), cslist_free_nop) == 0;
  }),
               false);
}

Verdict delete_from_table(Memory &memory) {
  const HashTablePtr table = table_of({"a", "b"});
  const uint32_t status = memory.failing([&] { return cshashtable_delete(table.get(), "a"); });
  return judge(status == 0 && cshashtable_find(table.get(), "a") == nullptr && table->count == 1, false);
}

Verdict find_in_table(Memory &memory) {
  const HashTablePtr table = table_of({"a", "b"});
  const auto *found = static_cast<char *>(memory.failing([&] { return cshashtable_find(table.get(), "b"); }));
  const auto *again = static_cast<char *>(
      memory.failing([&] { return cshashtable_findhv(table.get(), "b", cshashtable_hf_default("b")); }));
  return judge(std::strcmp(found, "b") == 0 && again == found, false);
}

Verdict iterate(Memory &memory) {
  const HashTablePtr table = table_of({"a", "b", "c"});
  int found = 0;
  memory.failing([&] {
    for (const void *item = nullptr; (item = cshashtable_iterate(table.get(), item, item)) != nullptr;) ++found;
  });
  return judge(found == 3, false);
}

Verdict stats(Memory &memory) {
  const HashTablePtr table = table_of({"a", "b"});
  cshashtable_statistics statistics{};
  memory.failing([&] { cshashtable_stats(table.get(), &statistics); });
  return judge(statistics.items == 2 && statistics.chained == 2 && statistics.buckets == 3, false);
}

Verdict free_table(Memory &memory) {
  cshashtable *table = table_of({"a", "b"}).release();
  return judge(memory.failing([&] { return cshashtable_free(table); }) == 0, false);
}

Verdict push(Memory &memory) {
  const auto stack = make<ListPtr, csstack_create>();
  const uint32_t status = memory.failing([&] { return csstack_push(stack.get(), items); });
  const void *popped = csstack_pop(stack.get());
  return judge(status == 0 && popped == items, status == 1 && popped == nullptr);
}

Verdict pop(Memory &memory) {
  const auto stack = make<ListPtr, csstack_create>();
  csstack_push(stack.get(), items);
  return judge(memory.failing([&] { return csstack_pop(stack.get()); }) == items, false);
}

template <uint32_t (*make_one)(cslist **), uint32_t (*put)(cslist *, void *), uint32_t (*release)(cslist *)>
Verdict free_container(Memory &memory) {
  cslist *made = nullptr;
  make_one(&made);
  put(made, items);
  return judge(memory.failing([&] { return release(made); }) == 0, false);
}

/// What could not be put is not there; what comes after it is.
Verdict put(Memory &memory) {
  const auto queue = make<QueuePtr, csqueue_create>();
  csqueue_put(queue.get(), items);
  const uint32_t status = memory.failing([&] { return csqueue_put(queue.get(), items + 1); });
  csqueue_put(queue.get(), items + 2);
  const bool is_first = csqueue_get(queue.get()) == items;
  const void *second = csqueue_get(queue.get());
  if (status == 1) return judge(false, is_first && second == items + 2);
  return judge(is_first && second == items + 1 && csqueue_get(queue.get()) == items + 2, false);
}

Verdict use_queue(Memory &memory) {
  const auto queue = make<QueuePtr, csqueue_create>();
  for (char *item : {items, items + 1, items + 2}) csqueue_put(queue.get(), item);
  return judge(memory.failing([&] {
    return csqueue_delete(queue.get(), items + 1) == 0 && csqueue_peek(queue.get()) == items &&
           csqueue_get(queue.get()) == items && csqueue_get(queue.get()) == items + 2;
  }),
               false);
}

/// put_at leaves the order of priorities as it is, whether or not there was memory for a new level.
Verdict put_at(Memory &memory) {
  const auto queue = make<PriqPtr, cspriq_create>();
  cspriq_put(queue.get(), items, 1);
  cspriq_put(queue.get(), items + 2, 3);
  const uint32_t status = memory.failing([&] { return cspriq_put(queue.get(), items + 1, 2); });
  if (cspriq_get(queue.get()) != items) return Verdict::wrong;
  const void *second = cspriq_get(queue.get());
  if (status == 1) return judge(false, second == items + 2);
  return judge(second == items + 1 && cspriq_get(queue.get()) == items + 2, false);
}

Verdict use_levels(Memory &memory) {
  const auto queue = make<PriqPtr, cspriq_create>();
  cspriq_put(queue.get(), items, 1);
  cspriq_put(queue.get(), items + 1, 2);
  return judge(
      memory.failing([&] { return cspriq_getpri(queue.get(), 2) == items + 1 && cspriq_get(queue.get()) == items; }),
      false);
}

Verdict free_levels(Memory &memory) {
  auto queue = make<PriqPtr, cspriq_create>();
  cspriq_put(queue.get(), items, 1);
  return judge(memory.failing([&] { return cspriq_free(queue.release()); }) == 0, false);
}

/// A buffer's bytes, whatever backs it.
std::string bytes_of(csio *io) {
  csio_finish(io);
  csio_rewind(io);
  std::string bytes(io->length + 1, '?');
  const int32_t count = csio_copy(io, bytes.data(), static_cast<int32_t>(bytes.size()));
  return bytes.substr(0, static_cast<size_t>(std::max(count, 0)));
}

std::string long_text(size_t size) {
  std::string text;
  for (int i = 0; text.size() < size; ++i) text += std::to_string(i) + ' ';
  return text.substr(0, size);
}

CsioPtr buffer_of(const std::string &text, uint32_t max_memory = 0) {
  CsioPtr io = make_csio(max_memory);
  csio_append(io.get(), text.data(), static_cast<int32_t>(text.size()));
  return io;
}

/// append_all returns whether every append stored all of its bytes.
bool append_all(csio *io, const std::string &text) {
  constexpr size_t piece = 100;
  bool is_stored = true;
  for (size_t at = 0; at < text.size(); at += piece) {
    const auto count = static_cast<int32_t>(std::min(piece, text.size() - at));
    is_stored = csio_append(io, text.data() + at, count) == count && is_stored;
  }
  return is_stored;
}

Verdict create_buffer(Memory &memory) {
  csio *made = nullptr;
  const csio *result = memory.failing([&] { return csio_create(&made); });
  const CsioPtr owned(made);
  return judge(made != nullptr && result == made && made->flags == CSIO_MEMORY, made == nullptr && result == nullptr);
}

/// Without memory the bytes are gone, which shows in the data.
Verdict increase(Memory &memory) {
  const CsioPtr io = buffer_of("text");
  memory.failing([&] { csio_increase(io.get(), 10000); });
  if (io->data == nullptr) return judge(false, csio_copy(io.get(), items, 0) == 0 && bytes_of(io.get()).empty());
  return judge(io->capacity >= 10000 && bytes_of(io.get()) == "text", false);
}

/// In memory an append says when bytes could not be kept. A buffer that moves to a file loses those that it had when
/// the file has no name; only the length tells.
template <uint32_t max_memory>
Verdict append(Memory &memory) {
  const std::string text = long_text(20000);
  const CsioPtr io = make_csio(max_memory);
  const bool is_stored = memory.failing([&] { return append_all(io.get(), text); });
  const bool is_whole = bytes_of(io.get()) == text;
  if (max_memory == 0) return judge(is_stored && is_whole, !is_stored && io->length == text.size());
  if (is_stored && !is_whole) return io->length < text.size() ? Verdict::incomplete : Verdict::wrong;
  return judge(is_whole, !is_stored);
}

/// A buffer without a name for its file has none. One whose last bytes wait for memory has them counted, not stored.
Verdict convert(Memory &memory) {
  const CsioPtr io = buffer_of("text");
  memory.failing([&] { return csio_convert2file(io.get()); });
  const std::string bytes = bytes_of(io.get());
  if (io->filename == nullptr) return judge(false, io->length == 0 && bytes.empty());
  if (bytes.empty() && io->length == 4) return Verdict::incomplete;
  return judge(bytes == "text", false);
}

/// The memory stays what is read, whatever becomes of its copy.
Verdict duplicate(Memory &memory) {
  const CsioPtr io = buffer_of("text");
  memory.failing([&] { return csio_dup2file(io.get()); });
  if (bytes_of(io.get()) != "text") return Verdict::wrong;
  if (io->filename == nullptr) return Verdict::refused;
  const std::string copy = support::read_file(io->filename);
  return copy.empty() ? Verdict::incomplete : judge(copy == "text", false);
}

Verdict read_buffer(Memory &memory) {
  const CsioPtr in_memory = buffer_of("text"), in_file = buffer_of(long_text(5000), 4096);
  return judge(
      memory.failing([&] { return bytes_of(in_memory.get()) + bytes_of(in_file.get()); }) == "text" + long_text(5000),
      false);
}

Verdict release_descriptor(Memory &memory) {
  const CsioPtr io = buffer_of(long_text(5000), 4096);
  memory.failing([&] { return csio_releasefd(io.get()); });
  return judge(io->fd == -1 && bytes_of(io.get()) == long_text(5000), false);
}

Verdict reset(Memory &memory) {
  const CsioPtr io = buffer_of(long_text(5000), 4096);
  const std::string file = io->filename;
  memory.failing([&] { csio_reset(io.get()); });
  return judge(io->length == 0 && !support::file_exists(file), false);
}

Verdict destroy(Memory &memory) {
  csio *io = buffer_of("text").release();
  memory.failing([&] { csio_destroy(io); });
  return Verdict::right;
}

}  // namespace

std::vector<Operation> adt_operations() {
  return {
      {"cslist_create", Need::reported, create<ListPtr, cslist_create>},
      {"cslist_set_compare", Need::none, set_callback<cs_compare_fn, cslist_set_compare, cslist_cmp_nop>},
      {"cslist_set_free", Need::none, set_callback<cs_free_fn, cslist_set_free, cslist_free_nop>},
      {"cslist_set_copy", Need::none, set_callback<cs_copy_fn, cslist_set_copy, cslist_copy_nop>},
      {"cslist_append", Need::reported, append_item},
      {"cslist_prepend", Need::reported, prepend_item},
      {"cslist_behead", Need::none, behead},
      {"cslist_delete", Need::none, delete_item},
      {"cslist_find", Need::none, find},
      {"cslist_apply", Need::none, apply},
      {"cslist_count", Need::none, count},
      {"cslist_do_free", Need::none, do_free},
      {"cslist_copy_nop cslist_free_nop cslist_cmp_nop", Need::none, callbacks},
      {"cshashtable_create", Need::unreported, create_table},
      {"cshashtable_set_hash cshashtable_set_copy cshashtable_set_compare cshashtable_set_free", Need::none,
       set_of_table},
      {"cshashtable_insert", Need::reported, insert},
      {"cshashtable_delete", Need::none, delete_from_table},
      {"cshashtable_find cshashtable_findhv cshashtable_hf_default", Need::none, find_in_table},
      {"cshashtable_iterate", Need::none, iterate},
      {"cshashtable_stats", Need::none, stats},
      {"cshashtable_free", Need::none, free_table},
      {"csstack_create", Need::reported, create<ListPtr, csstack_create>},
      {"csstack_push", Need::reported, push},
      {"csstack_pop", Need::none, pop},
      {"csstack_free", Need::none, free_container<csstack_create, csstack_push, csstack_free>},
      {"csqueue_create", Need::reported, create<QueuePtr, csqueue_create>},
      {"csqueue_put", Need::reported, put},
      {"csqueue_delete csqueue_peek csqueue_get", Need::none, use_queue},
      {"csqueue_free", Need::none, free_container<csqueue_create, csqueue_put, csqueue_free>},
      {"cspriq_create", Need::reported, create<PriqPtr, cspriq_create>},
      {"cspriq_put", Need::reported, put_at},
      {"cspriq_get cspriq_getpri", Need::none, use_levels},
      {"cspriq_free", Need::none, free_levels},
      {"csio_create", Need::reported, create_buffer},
      {"csio_increase", Need::reported, increase},
      {"csio_append", Need::reported, append<0>},
      {"csio_append", Need::unreported, append<8192>},
      {"csio_convert2file", Need::unreported, convert},
      {"csio_dup2file", Need::unreported, duplicate},
      {"csio_finish csio_rewind csio_copy", Need::none, read_buffer},
      {"csio_releasefd", Need::none, release_descriptor},
      {"csio_reset", Need::none, reset},
      {"csio_destroy", Need::none, destroy},
  };
}

}  // namespace rdm::faults
