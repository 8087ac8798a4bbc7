// SPDX-License-Identifier: MIT
#include "catalog/catalog_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "libcs/guard.h"
#include "support/database.h"
#include "support/directories.h"

namespace rdm {

std::string rd(const std::string &url, const Attributes &attributes) {
  std::string text = "@DOCUMENT { " + url + "\n";
  for (const auto &[name, value] : attributes)
    text += name + "{" + std::to_string(value.size()) + "}:\t" + value + "\n";
  return text + "}\n";
}

std::string export_header(const std::string &next_number, const std::string &descriptions) {
  std::string header = rd("-", {{"rdm-version", "1.0"},
                                {"rdm-type", "rd-response"},
                                {"minidba-next-number", next_number},
                                {"minidba-descriptions", descriptions}});
  return header.replace(1, std::string("DOCUMENT").size(), "RDMHEADER") + "\n\n";
}

std::vector<std::string> CatalogFiles::command(const std::vector<std::string> &words) const {
  std::vector<std::string> arguments{support::in_build("bin/minidba"), "-d", path()};
  arguments.insert(arguments.end(), words.begin(), words.end());
  return arguments;
}

support::Finished CatalogFiles::run(const std::vector<std::string> &words, const std::string &input) const {
  std::vector<std::string> all{"-i", path(".idx")};
  all.insert(all.end(), words.begin(), words.end());
  return support::run(command(all), input);
}

support::Finished CatalogFiles::run_read_only(const std::vector<std::string> &words) const {
  std::vector<std::string> all = command({"-i", path(".idx")});
  all.insert(all.end(), words.begin(), words.end());
  ::chmod(directory().c_str(), 0555);
  support::Finished finished = support::run(support::as_owner(all));
  ::chmod(directory().c_str(), 0755);
  return finished;
}

void CatalogFiles::put(const std::string &key, const std::string &record) const {
  support::put_record(DatabasePtr(dba_open(path().c_str(), "w")).get(), key, record);
}

void CatalogFiles::remove(const std::string &key) const {
  support::erase_record(DatabasePtr(dba_open(path().c_str(), "w")).get(), key);
}

std::string CatalogFiles::shell_command(const std::string &words) const {
  return support::in_build("bin/minidba") + " -d " + path() + " -i " + path(".idx") + " " + words;
}

support::Finished CatalogFiles::update(const std::string &stream) const {
  return support::run(command({"update"}), stream);
}

support::Finished CatalogFiles::index() const { return support::run(command({"-i", path(".idx"), "index"})); }

void CatalogFiles::make_empty() const { EXPECT_EQ(run({"import"}, export_header("1", "0")).out, "0\n"); }

std::map<std::string, std::string> CatalogFiles::records() const {
  std::map<std::string, std::string> records;
  const DatabasePtr database(dba_open(path().c_str(), "r"));
  if (!database) {
    ADD_FAILURE() << "cannot open " << path();
    return records;
  }
  DBT key{}, value{};
  int result = dba_first(database.get(), &key, &value);
  for (; result == 0; result = dba_next(database.get(), &key, &value))
    records.emplace(support::text_of(key), support::text_of(value));
  EXPECT_EQ(result, 1);
  return records;
}

std::string CatalogFiles::value(const std::string &record, const std::string &attribute) {
  const SoifPtr object = SoifReader(record).next();
  const char *text = object ? soif_findval(object.get(), attribute.c_str()) : nullptr;
  return text != nullptr ? text : "(none)";
}

std::vector<uint32_t> CatalogFiles::words() const {
  const std::string bytes = support::read_file(path(".idx"));
  std::vector<uint32_t> words;
  for (size_t at = 0; at + 4 <= bytes.size(); at += 4) {
    uint32_t word = 0;
    for (size_t i = 0; i < 4; ++i) word = word << 8 | static_cast<unsigned char>(bytes[at + i]);
    words.push_back(word);
  }
  return words;
}

std::vector<std::string> CatalogFiles::files() const {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(directory())) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace rdm
