#include <cstring>
#include <string_view>

#include "qxapi/guard.h"
#include "qxapi/posix.h"
#include "qxapi/records.h"

namespace posix_host {
namespace {

/// A word of a configuration line: its name and its value with the escapes still in it.
struct Word {
  std::string_view name;
  std::string_view value;
  bool is_pair;
};

constexpr bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

size_t skip_blanks(std::string_view line, size_t at) {
  while (at < line.size() && is_blank(line[at])) ++at;
  return at;
}

/// value_end returns where the value that begins at `at` ends: at its closing quote, at a blank, or with the line.
size_t value_end(std::string_view line, size_t at, bool quoted) {
  for (; at < line.size(); ++at) {
    if (line[at] == '\\' && at + 1 < line.size())
      ++at;
    else if (quoted ? line[at] == '"' : is_blank(line[at]))
      break;
  }
  return at;
}

/// take_word reads the word at the front of `line` and removes it.
Word take_word(std::string_view &line) {
  size_t at = 0;
  while (at < line.size() && !is_blank(line[at]) && line[at] != '=') ++at;
  Word word{line.substr(0, at), {}, at < line.size() && line[at] == '='};
  if (word.is_pair) {
    const bool quoted = ++at < line.size() && line[at] == '"';
    if (quoted) ++at;
    const size_t end = value_end(line, at, quoted);
    word.value = line.substr(at, end - at);
    at = quoted && end < line.size() ? end + 1 : end;
  }
  line.remove_prefix(at);
  return word;
}

host_text copy_text(std::string_view text) {
  host_text copy(static_cast<char *>(host_alloc(text.size() + 1)));
  if (copy) copy.get()[text.copy(copy.get(), text.size())] = '\0';
  return copy;
}

host_text copy_unescaped(std::string_view text) {
  host_text copy(static_cast<char *>(host_alloc(text.size() + 1)));
  if (!copy) return copy;
  char *out = copy.get();
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    *out++ = text[i];
  }
  *out = '\0';
  return copy;
}

}  // namespace

pblock *param_create(int /*slots*/) {
  host_ptr<pblock> block = host_new<pblock>();
  if (block) block->last = &block->first;
  return block.release();
}

void param_free(pblock *b) {
  if (b == nullptr) return;
  for (host_param *entry = b->first; entry != nullptr;) {
    host_param *next = entry->next;
    param_free_entry(entry);
    entry = next;
  }
  host_free(b);
}

char *param_find(const char *name, const pblock *b) {
  for (const host_param *entry = b->first; entry != nullptr; entry = entry->next)
    if (std::strcmp(entry->name, name) == 0) return entry->value;
  return nullptr;
}

host_param *param_find_entry(const char *name, pblock *b, int remove) {
  host_param **link = &b->first;
  while (*link != nullptr && std::strcmp((*link)->name, name) != 0) link = &(*link)->next;
  host_param *entry = *link;
  if (entry == nullptr || remove == 0) return entry;
  *link = entry->next;
  if (b->last == &entry->next) b->last = link;
  entry->next = nullptr;
  return entry;
}

int param_add(const char *name, const char *value, pblock *b) {
  param_ptr entry(host_new<host_param>().release());
  if (!entry) return -1;
  entry->name = host_strdup(name);
  entry->value = host_strdup(value);
  if (entry->name == nullptr || entry->value == nullptr) return -1;
  host_param *const added = entry.release();
  *b->last = added;
  b->last = &added->next;
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
  for (std::string_view rest = line;;) {
    rest.remove_prefix(skip_blanks(rest, 0));
    if (rest.empty()) return pairs;
    const Word word = take_word(rest);
    if (!word.is_pair || word.name.empty()) continue;
    const host_text name = copy_text(word.name);
    const host_text value = copy_unescaped(word.value);
    if (!name || !value || host_param_add(name.get(), value.get(), b) != 0) return -1;
    ++pairs;
  }
}

}  // namespace posix_host
