// SPDX-License-Identifier: MIT
#include "service/support/catalog.h"

#include <gtest/gtest.h>

#include "dba/dba.h"
#include "service/csid.h"

namespace rdm::support {
namespace {

void append_word(std::string &bytes, uint32_t word) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(word >> shift);
}

}  // namespace

std::string soif(const std::string &template_name, const std::string &url,
                 const std::vector<std::pair<std::string, std::string>> &attributes) {
  std::string text = "@" + template_name + " { " + url + "\n";
  for (const auto &[name, value] : attributes)
    text += name + "{" + std::to_string(value.size()) + "}:\t" + value + "\n";
  return text + "}\n";
}

Catalog::Catalog(const TemporaryDirectory &directory, const std::string &name) : path_(directory.path(name)) {
  DB *database = dba_open(path_.c_str(), "w+");
  if (database == nullptr)
    ADD_FAILURE() << "cannot create " << path_;
  else
    dba_close(database);
}

void Catalog::put(uint32_t number, const std::string &record) {
  DB *database = dba_open(path_.c_str(), "w");
  if (database == nullptr) {
    ADD_FAILURE() << "cannot open " << path_;
    return;
  }
  char key[9];
  std::snprintf(key, sizeof key, "%08x", number);
  std::string bytes = record;
  DBT name{key, 8}, value{bytes.data(), bytes.size()};
  EXPECT_EQ(dba_put(database, &name, &value), 0);
  EXPECT_EQ(dba_close(database), 0);
}

void Catalog::index(const std::vector<std::pair<uint32_t, uint32_t>> &entries) {
  write_file(path_ + ".idx", index_bytes(0x3EB1CA0E, static_cast<uint32_t>(entries.size()), entries));
}

std::string index_bytes(uint32_t magic, uint32_t count, const std::vector<std::pair<uint32_t, uint32_t>> &entries) {
  std::string bytes;
  append_word(bytes, magic);
  append_word(bytes, count);
  for (const auto &[time, key] : entries)
    for (uint32_t word : {time, 3u, key, 17u, 0xDEADBEEFu}) append_word(bytes, word);
  return bytes;
}

Registry::Registry(const TemporaryDirectory &directory, const std::string &text, const char *default_csid) {
  csid_init(directory.write("csid.conf", text).c_str(), default_csid);
}

Registry::~Registry() { csid_terminate(); }

}  // namespace rdm::support
