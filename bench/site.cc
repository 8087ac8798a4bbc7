// SPDX-License-Identifier: MIT
#include "site.h"

#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "support/directories.h"
#include "support/process.h"

namespace rdm::bench {
namespace {

void write_attribute(std::ostream &out, const std::string &name, const std::string &value) {
  out << name << '{' << value.size() << "}:\t" << value << '\n';
}

/// prose returns text of this size that differs from record to record.
std::string prose(std::size_t record, std::size_t size) {
  static constexpr const char *words[] = {"catalog", "record", "river", "mountain", "letter", "history", "method"};
  std::string text;
  while (text.size() < size) {
    text += words[record % std::size(words)];
    text += ' ';
    record = record * 6364136223846793005U + 1442695040888963407U;
  }
  text.resize(size);
  return text;
}

void write_description(std::ostream &out, std::size_t number) {
  const std::string name = std::to_string(number);
  out << "@DOCUMENT { http://host.example/documents/" << name << ".html\n";
  write_attribute(out, "title", "Document " + name + ": " + prose(number, 60));
  write_attribute(out, "author-1", prose(number + 1, 20));
  write_attribute(out, "author-2", prose(number + 2, 24));
  write_attribute(out, "description", prose(number + 3, 400));
  write_attribute(out, "partial-text", prose(number + 4, 1200));
  write_attribute(out, "keywords", prose(number + 5, 80));
  write_attribute(out, "content-type", "text/html");
  write_attribute(out, "content-length", std::to_string(1000 + number % 9000));
  write_attribute(out, "content-language", "en");
  write_attribute(out, "classification-1", "Science:Rivers");
  write_attribute(out, "md5", "0123456789abcdef0123456789abcdef");
  write_attribute(out, "publisher", "Example Press");
  out << "}\n\n";
}

/// must runs a shell command.
void must(const std::string &command) {
  const auto finished = support::run({"/bin/sh", "-c", command});
  if (finished.status != 0) fail(command + ": " + finished.errors);
}

}  // namespace

void fail(const std::string &message) { throw std::runtime_error(message); }

std::size_t use_all_files() {
  struct rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) fail("getrlimit fails");
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_max;
}

void write_descriptions(const std::string &path, std::size_t first, std::size_t count) {
  std::ofstream out(path, std::ios::binary | std::ios::app);
  for (std::size_t i = 0; i < count; ++i) write_description(out, first + i);
  if (!out.flush()) fail("cannot write " + path);
}

int run_bench(const std::function<bool()> &bench) {
  try {
    return bench() ? 0 : 1;
  } catch (const std::exception &error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}

Site::Site(std::size_t records) {
  std::filesystem::create_directory(path("tmp"));
  const std::string descriptions = path("rds.soif"), tool = support::in_build("bin/minidba") + " -d " + database();
  write_descriptions(descriptions, 0, records);
  must(tool + " update < " + descriptions);
  must(tool + " -i " + database() + ".idx index");
  std::filesystem::remove(descriptions);
  directory_.write("csid.conf",
                   std::string("csid=\"") + catalog_name + "\"\ncatalog-database=\"" + database() + "\"\n");
  directory_.write("rdm.conf", "bindir=\"" + support::in_build("bin") + "\"\ntmpdir=\"" + path("tmp") +
                                   "\"\ncsid-config=\"" + path("csid.conf") + "\"\ncsid-default=\"" + catalog_name +
                                   "\"\nlogfile=\"" + path("rdm.log") + "\"\n");
}

std::unique_ptr<support::RdmdProcess> Site::start(const std::vector<std::string> &arguments) const {
  std::vector<std::string> all{"--listen", "127.0.0.1:0",   "--plugin", support::in_build("lib/librdm.so"),
                               "--config", path("rdm.conf")};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return std::make_unique<support::RdmdProcess>(all);
}

std::size_t Site::files_left() const {
  const std::filesystem::directory_iterator entries(path("tmp")), end;
  return static_cast<std::size_t>(std::distance(entries, end));
}

}  // namespace rdm::bench
