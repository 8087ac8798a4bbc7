// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>

#include <libcs/cs.h>

#include "libcs/extra/join.h"
#include "qxapi/guard.h"

using namespace rdm;

namespace {

int add_value(const char *name, const char *value, pblock *block) {
  if (host_param_find(name, block) == nullptr) return host_param_add(name, value, block);
  // A pair that was found once can be removed without memory.
  const host_param *old = host_param_find_entry(name, block, 0);
  const HostText joined = old != nullptr ? join(old->value, ',', value) : nullptr;
  if (!joined || host_param_add(name, joined.get(), block) != 0) return -1;
  // Lookups find the first added, which is the old value.
  pblock_remove_n_free(name, block);
  return 0;
}

int add_field(char *field, int &unnamed, pblock *block) {
  char number[21];
  char *name = number, *value = field;
  if (char *equals = std::strchr(field, '=')) {
    *equals = '\0';
    name = field;
    value = equals + 1;
  } else {
    host_itoa(++unnamed, number);
  }
  for (char *part : {name, value}) {
    plus2space(part);
    host_unescape(part);
  }
  return add_value(name, value, block);
}

/// State of the scanner of name="value" pairs at a character.
enum class Place { name, after_equals, in_value, after_value };

Place next_place(Place place, char c) {
  switch (place) {
    case Place::name:
      return c == '=' ? Place::after_equals : Place::name;
    case Place::after_equals:
      return c == '"' ? Place::in_value : Place::name;
    case Place::in_value:
      return c == '"' ? Place::after_value : Place::in_value;
    case Place::after_value:
      break;
  }
  return Place::name;
}

}  // namespace

char *plus2space(char *text) noexcept {
  char *end = text + std::strlen(text);
  std::replace(text, end, '+', ' ');
  return end;
}

int pblock_form2pblock(char *text, int32_t length, pblock *block) noexcept {
  char *const end = text + length;
  *end = '\0';
  int unnamed = 0;
  for (char *field = text;;) {
    char *field_end = std::find(field, end, '&');
    *field_end = '\0';
    const int result = add_field(field, unnamed, block);
    if (field_end == end) return result;
    field = field_end + 1;
  }
}

char *pblock_pblock2str_add_nl(char *text) noexcept {
  Place place = Place::name;
  for (char *at = text; *at != '\0'; ++at) {
    if (*at == '\\') {
      if (at[1] != '\0') ++at;
      continue;
    }
    const Place next = next_place(place, *at);
    if (place == Place::after_value) *at = '\n';
    place = next;
  }
  return text;
}

void pblock_remove_n_free(const char *name, pblock *block) noexcept {
  if (name == nullptr || host_param_find_entry(name, block, 0) == nullptr) return;
  host_param_free_entry(host_param_find_entry(name, block, 1));
}
