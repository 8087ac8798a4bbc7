// SPDX-License-Identifier: MIT
/// Records of a database handle as texts.
#ifndef TESTS_SUPPORT_DATABASE_H
#define TESTS_SUPPORT_DATABASE_H

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "dba/guard.h"

namespace rdm::support {

inline DBT dbt_of(std::string_view text) { return {const_cast<char *>(text.data()), text.size()}; }
inline std::string text_of(const DBT &item) { return {static_cast<const char *>(item.data), item.size}; }

/// put_record stores a record, erase_record erases one. They expect success.
inline void put_record(DB *database, std::string_view key, std::string_view value) {
  DBT name = dbt_of(key);
  const DBT text = dbt_of(value);
  ASSERT_NE(database, nullptr);
  EXPECT_EQ(dba_put(database, &name, &text), 0) << key;
}
inline void erase_record(DB *database, std::string_view key) {
  const DBT name = dbt_of(key);
  ASSERT_NE(database, nullptr);
  EXPECT_EQ(dba_del(database, &name), 0) << key;
}

/// get_record returns the value of a key; nothing if there is none.
inline std::optional<std::string> get_record(DB *database, std::string_view key) {
  const DBT name = dbt_of(key);
  DBT value{};
  return dba_get(database, &name, &value) == 0 ? std::optional(text_of(value)) : std::nullopt;
}

/// expect_records compares values by their keys.
inline void expect_records(DB *database, const std::map<std::string, std::string> &records) {
  ASSERT_NE(database, nullptr);
  for (const auto &[key, value] : records) ASSERT_TRUE(get_record(database, key) == value) << key;
}

}  // namespace rdm::support

#endif
