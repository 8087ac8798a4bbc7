// SPDX-License-Identifier: MIT
/// Items of lists and hash tables that record which copies exist.
#ifndef TESTS_LIBCS_ADT_TRACKED_ITEMS_H
#define TESTS_LIBCS_ADT_TRACKED_ITEMS_H

#include <cstring>
#include <map>
#include <memory>
#include <string>

#include <libcs/adt.h>

namespace rdm {

/// TrackedItem is a container's copy of an item. It begins with its text, so that it compares as a string.
struct TrackedItem {
  char text[4];
  int serial;
};

/// TrackedItems holds every unreleased copy by serial number.
struct TrackedItems {
  std::map<int, std::unique_ptr<TrackedItem>> live;
  int made = 0;
  int nulls_released = 0;
};

inline TrackedItems &tracked_items() {
  static TrackedItems items;
  return items;
}

/// The texts of operations; the copy of the empty one is null.
constexpr const char *item_texts[] = {"a", "b", "ab", "c", "ba", ""};
constexpr int item_text_count = 6;

/// copy_tracked, release_tracked, compare_texts and compare_letter are callbacks.
inline void *copy_tracked(const void *item) noexcept {
  const char *text = static_cast<const char *>(item);
  if (*text == '\0') return nullptr;
  auto copy = std::make_unique<TrackedItem>();
  std::strncpy(copy->text, text, sizeof copy->text - 1);
  copy->serial = ++tracked_items().made;
  return (tracked_items().live[copy->serial] = std::move(copy)).get();
}

inline void release_tracked(void *item) noexcept {
  if (item == nullptr)
    ++tracked_items().nulls_released;
  else
    tracked_items().live.erase(static_cast<TrackedItem *>(item)->serial);
}

inline int compare_texts(const void *item, const void *key) noexcept {
  return std::strcmp(static_cast<const char *>(item), static_cast<const char *>(key));
}

inline int compare_letter(const void *item, const void *key) noexcept {
  return *static_cast<const char *>(item) - *static_cast<const char *>(key);
}

/// label returns text and serial number of a stored item, or "null".
inline std::string label(const void *item) {
  if (item == nullptr) return "null";
  const auto *tracked = static_cast<const TrackedItem *>(item);
  return tracked->text + ('#' + std::to_string(tracked->serial));
}

/// matches returns true if a label's text matches a key, by its first letter or in full.
inline bool matches(const std::string &name, const std::string &key, bool by_letter) {
  if (name == "null") return false;
  return by_letter ? name[0] == (key.empty() ? '\0' : key[0]) : name.substr(0, name.find('#')) == key;
}

/// next_label returns the label of the next copy of a text.
inline std::string next_label(const std::string &text) {
  return text.empty() ? "null" : text + '#' + std::to_string(tracked_items().made + 1);
}

}  // namespace rdm

#endif
