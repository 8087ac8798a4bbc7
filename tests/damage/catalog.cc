// SPDX-License-Identifier: MIT
#include "damage/catalog.h"

#include <fcntl.h>
#include <unistd.h>

#include <sstream>

#include <gtest/gtest.h>

#include "catalog/os/error.h"
#include "catalog/record.h"
#include "catalog/transaction.h"
#include "damage/pages.h"
#include "libcs/cs.h"
#include "qxapi/guard.h"
#include "service/rdm.h"
#include "support/database.h"
#include "support/memory_host.h"

namespace rdm::damage {
namespace {

using support::soif;

constexpr char csid[] = "x-catalog://localhost:80/catalog";
constexpr time_t first_change = 1'000'000'000;
constexpr uint32_t library_page_size = 1024;

const std::map<std::string, minidba::Verb> verbs = {{"update", minidba::update},
                                                    {"rebuild", minidba::rebuild},
                                                    {"delete", minidba::delete_descriptions},
                                                    {"index", minidba::index},
                                                    {"unclassified", minidba::unclassified},
                                                    {"get", minidba::get},
                                                    {"list", minidba::list},
                                                    {"export", minidba::export_catalog},
                                                    {"stats", minidba::stats},
                                                    {"verify", minidba::verify},
                                                    {"expire", minidba::expire}};

std::string bytes_of(const std::string &path) {
  return support::file_exists(path) ? support::read_file(path) : std::string();
}

/// overwrite changes the bytes of an open file where they differ.
void overwrite(int fd, const std::string &bytes) {
  std::string old(bytes.size(), '\0');
  struct stat status;
  ASSERT_EQ(::fstat(fd, &status), 0);
  if (static_cast<size_t>(status.st_size) != bytes.size()) {
    ASSERT_EQ(::ftruncate(fd, static_cast<off_t>(bytes.size())), 0);
  }
  ASSERT_EQ(::pread(fd, old.data(), old.size(), 0), static_cast<ssize_t>(bytes.size()));
  if (old != bytes) {
    ASSERT_EQ(::pwrite(fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  }
}

/// clear_slack puts zeros where the library has left what it found in fresh memory, which the address sanitizer fills:
/// a damaged offset makes that part of a record.
void clear_slack(const std::string &path) {
  constexpr char sanitizer_fill = '\xBE';
  std::string bytes = support::read_file(path);
  const std::vector<bool> matters = HashPages(bytes).matters();
  for (size_t i = 0; i < bytes.size(); ++i)
    if (!matters[i] && bytes[i] == sanitizer_fill) bytes[i] = '\0';
  support::write_file(path, bytes);
}

Records records_of(Writer writer) {
  Records records;
  const bool small_pages = writer == Writer::library;
  const uint32_t count = small_pages ? 150 : 90;
  for (uint32_t number = 1; number <= count; ++number) {
    const size_t usual = small_pages ? number * 37 % 250 : number * 397 % 3000;
    const size_t long_one = small_pages ? 900 + number * 30 : 34000 + number * 100;
    const bool is_long = number % (small_pages ? 15 : 40) == 0;
    records[number] = description(number, is_long ? long_one : usual);
  }
  return records;
}

}  // namespace

std::string url_of(uint32_t number) { return "http://localhost/" + std::to_string(number); }

std::string description(uint32_t number, size_t size) {
  std::string body(size, ' '), time(64, '\0');
  for (size_t i = 0; i < size; ++i) body[i] = static_cast<char>('a' + (size_t{31} * number + i * 7 + i / 251) % 26);
  time.resize(static_cast<size_t>(cs_time2str(first_change + time_t{3600} * number, time.data(), 64)));
  const std::string text = soif(
      "FILE", url_of(number), {{"title", "No. " + std::to_string(number)}, {"rd-last-changed", time}, {"body", body}});
  return catalog::print(catalog::parse(text).get());
}

Catalog::Catalog(Writer writer)
    : registry_(directory_,
                "csid=\"" + std::string(csid) + "\" catalog-database=\"" + directory_.path("catalog.db") + "\"\n",
                csid),
      records_(records_of(writer)) {
  writer == Writer::library ? make_with_library() : make_with_minidba();
  EXPECT_EQ(run("index").status, 0);
  for (const Part part : {database, index_file, url_map}) files_[part] = bytes_of(path(part));
  keep();
}

std::string Catalog::path(Part part) const {
  static constexpr const char *suffixes[] = {"", ".idx", ".url"};
  return directory_.path("catalog.db") + suffixes[part];
}

void Catalog::make_with_library() {
  HASHINFO info{};
  info.bsize = library_page_size;
  DatabasePtr db(QX_dbopen(path(database).c_str(), O_RDWR | O_CREAT, 0644, DB_HASH, &info));
  ASSERT_NE(db, nullptr);
  for (const auto &[number, record] : records_) support::put_record(db.get(), catalog::database_key(number), record);
  db.reset();
  clear_slack(path(database));
}

/// make_with_minidba adds what is deleted afterwards, so that some overflow pages are free.
void Catalog::make_with_minidba() {
  constexpr uint32_t extra = 1000;
  for (const bool whole : {false, true}) {
    const catalog::Lock lock(path(database));
    const catalog::Catalog catalog(path(database), catalog::IfMissing::empty);
    catalog::WriteBatch batch(catalog);
    if (!whole)
      for (const auto &[number, record] : records_) batch.put(number, url_of(number), record);
    whole ? batch.erase(extra, url_of(extra)) : batch.put(extra, url_of(extra), description(extra, 70000));
    catalog::commit(lock, catalog, batch, extra + 1);
  }
}

/// keep holds on to the files by a second name each.
void Catalog::keep() {
  for (const Part part : {database, index_file, url_map}) {
    if (files_[part].empty()) continue;
    EXPECT_EQ(::link(path(part).c_str(), (path(part) + "-kept").c_str()), 0);
    EXPECT_EQ(::stat(path(part).c_str(), &states_[part]), 0);
  }
}

void Catalog::write(const Files &files) {
  for (const Part part : {database, index_file, url_map}) {
    ::unlink(path(part).c_str());
    if (files_[part].empty()) continue;
    const HostFileGuard file(::open((path(part) + "-kept").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_TRUE(file);
    overwrite(file.get(), files[part]);
    const struct timespec times[2] = {states_[part].st_atim, states_[part].st_mtim};
    ASSERT_EQ(::futimens(file.get(), times), 0);
    ASSERT_EQ(::link((path(part) + "-kept").c_str(), path(part).c_str()), 0);
  }
}

Finished Catalog::run(const std::string &verb, const std::string &input,
                      const std::vector<std::string> &arguments) const {
  std::ostringstream out, errors;
  const HostFileGuard stream(::open(directory_.write("input", input).c_str(), O_RDONLY | O_CLOEXEC));
  minidba::Options options;
  options.verb = verb;
  options.database = path(database);
  options.index = path(index_file);
  options.arguments = arguments;
  int status = tools::exit_failure;
  try {
    status = verbs.at(verb)(options, minidba::Console{stream.get(), out, errors, false, false});
  } catch (const catalog::Failure &failure) {
    errors << "minidba: " << failure.what() << '\n';
  }
  return {status, out.str(), errors.str()};
}

Answer Catalog::serve(const std::string &scope, const std::string &attributes) {
  support::HostRecord &host = support::host_record();
  host.sent.clear();
  host.responses_started = 0;
  std::vector<std::pair<std::string, std::string>> query = {{"scope", scope}};
  if (!attributes.empty()) query.emplace_back("view-attributes", attributes);
  const std::string message = soif("RDMHEADER", "-",
                                   {{"rdm-version", "1.0"},
                                    {"rdm-type", "rd-request"},
                                    {"rdm-query-language", "gatherer"},
                                    {"catalog-service-id", csid}}) +
                              "\n" + soif("RDMQUERY", "-", query);
  support::Exchange x("POST", "/rdm/rd-request", message);
  x.header("content-length", std::to_string(message.size()));
  rdm_service(nullptr, &x.session, &x.request);
  return {host.responses_started, host.status, x.response("content-length"), host.sent};
}

Records Catalog::found() const {
  Records found;
  const DatabasePtr db(dba_open(path(database).c_str(), "r"));
  if (!db) return found;
  for (const auto &[number, record] : records_)
    if (const auto text = support::get_record(db.get(), catalog::database_key(number))) found[number] = *text;
  return found;
}

}  // namespace rdm::damage
