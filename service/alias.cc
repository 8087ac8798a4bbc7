// SPDX-License-Identifier: MIT
#include "service/alias.h"

#include <cstring>

#include <libcs/log.h>

#include "qxapi/line_reader.h"

using namespace rdm;

namespace {

constexpr int map_slots = 13;
constexpr int alias_buffer_size = 8192;

bool read_file(const char *path, pblock *a2p, pblock *p2a) {
  LineReader reader(path, alias_buffer_size);
  if (!reader.is_open()) {
    CSLOG(CSLOG_ERROR, "alias", "alias_init: Can't open %s: %s\n", path, host_last_error_text());
    return false;
  }
  if (!reader) {
    CSLOG(CSLOG_ERROR, "alias", "alias_init: Can't buffer %s\n", path);
    return false;
  }
  while (char *line = reader.next()) alias_parse(a2p, p2a, line);
  if (reader.is_at_end()) return true;
  CSLOG(CSLOG_ERROR, "alias", "alias_init: Can't read %s: %s\n", path, host_last_error_text());
  return false;
}

PblockPtr create_map() {
  PblockPtr map(host_param_create(map_slots));
  if (!map) CSLOG(CSLOG_ERROR, "alias", "alias_init: pblock_create failed\n");
  return map;
}

}  // namespace

int alias_init(pblock **a2p, pblock **p2a, const char *path) noexcept {
  *a2p = *p2a = nullptr;
  PblockPtr parents = create_map();
  PblockPtr aliases = parents ? create_map() : nullptr;
  if (!aliases || !read_file(path, parents.get(), aliases.get())) return -1;
  *a2p = parents.release();
  *p2a = aliases.release();
  return 0;
}

int alias_parse(pblock *a2p, pblock *p2a, char *line) noexcept {
  constexpr char delimiters[] = " \t\n";
  char *rest = nullptr;
  const char *parent = ::strtok_r(line, delimiters, &rest);
  if (parent == nullptr) return 0;
  // A parent may begin several lines, so only aliases must be unique.
  if (alias_copy(a2p, parent, parent, 0) != 0) return -1;
  const char *previous = parent;
  while (const char *alias = ::strtok_r(nullptr, delimiters, &rest)) {
    if (alias_copy(a2p, alias, parent, 1) != 0 || alias_copy(p2a, previous, alias, 0) != 0) return -1;
    previous = alias;
  }
  return 0;
}

int alias_copy(pblock *map, const char *name, const char *value, int unique) noexcept {
  if (unique != 0 && host_param_find(name, map) != nullptr) {
    CSLOG(CSLOG_ERROR, "alias", "alias_copy: uniqueness constraint violated (alias %s)\n", name);
    return -1;
  }
  if (host_param_add(name, value, map) != 0) {
    CSLOG(CSLOG_ERROR, "alias", "alias_copy: pblock insert failed\n");
    return -1;
  }
  return 0;
}

char *alias_to_parent(pblock *a2p, const char *alias) noexcept {
  return a2p != nullptr ? host_param_find(alias, a2p) : nullptr;
}

char *parent_to_aliases(pblock *p2a, const char *name) noexcept {
  return p2a != nullptr ? host_param_find(name, p2a) : nullptr;
}

char *alias_iterate(pblock *p2a, const char *parent) noexcept {
  const char *name = parent;
  while (name != nullptr) name = parent_to_aliases(p2a, name);
  return nullptr;
}

void alias_destroy(pblock *a2p, pblock *p2a) noexcept {
  host_param_free(a2p);
  host_param_free(p2a);
}
