// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/catalog_files.h"

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "dba/guard.h"

namespace rdm::support {
namespace {

std::string time_text(std::time_t time) {
  struct tm fields {};
  char text[64] = "";
  ::gmtime_r(&time, &fields);
  std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &fields);
  return text;
}

DBT item_of(const std::string &text) { return {const_cast<char *>(text.data()), text.size()}; }

std::string record_of(const Description &description) {
  const std::string time = time_text(description.changed);
  return "@DOCUMENT { http://localhost/" + description.title + "\ntitle{" + std::to_string(description.title.size()) +
         "}:\t" + description.title + "\nrd-last-changed{" + std::to_string(time.size()) + "}:\t" + time + "\n}\n";
}

}  // namespace

Records records_of(const Descriptions &descriptions) {
  Records records;
  for (const auto &[number, description] : descriptions) {
    char key[9];
    std::snprintf(key, sizeof key, "%08x", number);
    records[key] = record_of(description);
  }
  return records;
}

void make_database(const std::string &path, const Records &records) {
  const DatabasePtr database(dba_open(path.c_str(), "w+"));
  ASSERT_TRUE(database);
  for (const auto &[key, record] : records) {
    DBT name = item_of(key);
    const DBT text = item_of(record);
    ASSERT_EQ(dba_put(database.get(), &name, &text), 0);
  }
}

std::string index_of(const Descriptions &descriptions) {
  std::vector<std::pair<std::uint32_t, std::uint32_t>> order;
  for (const auto &[number, description] : descriptions) order.emplace_back(description.changed, number);
  std::sort(order.begin(), order.end());
  std::string bytes = big_endian(0x3EB1CA0E) + big_endian(static_cast<std::uint32_t>(order.size()));
  for (const auto &[time, number] : order) {
    const std::string text = record_of(descriptions.at(number));
    const auto checksum = ::crc32_z(0, reinterpret_cast<const unsigned char *>(text.data()), text.size());
    bytes += big_endian(time) + big_endian(0) + big_endian(number) +
             big_endian(static_cast<std::uint32_t>(text.size())) + big_endian(static_cast<std::uint32_t>(checksum));
  }
  return bytes;
}

std::string big_endian(std::uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<char>(number >> shift & 0xff));
  return bytes;
}

}  // namespace rdm::support
