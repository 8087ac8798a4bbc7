// SPDX-License-Identifier: MIT
/// What a catalog must be: its descriptions by number as plain values, which numbers were used, and what the index and
/// the URL map know of them. Each verb says what it prints and becomes what the catalog must be after it.
#ifndef TESTS_TOOLS_MINIDBA_CATALOG_MODEL_H
#define TESTS_TOOLS_MINIDBA_CATALOG_MODEL_H

#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "catalog/catalog_files.h"

namespace rdm {

/// A description as a reader of its text sees it. Names are lower-case, and empty values are none.
struct Description {
  std::string url;
  std::map<std::string, std::vector<std::string>> attributes;
  bool operator==(const Description &) const = default;
};

/// read_description reads one from the text of a record; nothing when that is not as minidba prints it.
std::optional<Description> read_description(const std::string &record);

/// An object of a stream, as it is sent and as it must be understood.
struct StreamObject {
  std::string text;
  std::string refusal;  // why it is none; empty for a description
  std::string kept;     // what --rejects keeps of it
  Description description;
  std::string number;  // minidba-number; empty without one
};

/// A stream: a header may stand in front of the objects.
struct Stream {
  std::string header;
  std::optional<uint64_t> next_number, count;  // what the header announces
  std::vector<StreamObject> objects;
  std::string text() const;
  /// fault returns why the stream is not what its header announces; empty when it is. More objects than announced are
  /// one only to an import.
  std::string fault(bool may_have_more) const;
};

struct Flags {
  bool dry_run = false, json = false, quiet = false, rejects = false, replace = false;
  bool no_header = false, allow_empty = false;
};

/// Result is what a verb prints, and what it leaves of what was refused; nothing when it leaves that file alone.
struct Result {
  int status = 0;
  std::string out, errors;
  std::optional<std::string> rejects;
};

class CatalogModel {
 public:
  explicit CatalogModel(std::string path) : path_(std::move(path)) {}

  Result update(const Stream &stream, const Flags &flags, time_t clock);
  Result import(const Stream &stream, const Flags &flags, time_t clock);
  Result expire(const Flags &flags);
  Result remove(const std::vector<std::string> &words, const Flags &flags);
  Result rebuild(const Flags &flags);
  Result index(const Flags &flags);

  /// put_by_another and remove_by_another are what a program does that knows the database alone. Nothing happens when
  /// another description has the URL, or when there is none to remove; false then.
  bool put_by_another(uint32_t number, const Description &description);
  bool remove_by_another(uint32_t number);

  Result unclassified() const;
  Result get(const std::vector<std::string> &words) const;
  Result list(time_t since, bool as_table) const;
  Result stats() const;
  Result export_whole() const;
  Result verify() const;

  /// adopt takes over the records as they are, when they are what they must be. What differs otherwise is returned.
  std::string adopt(const std::map<std::string, std::string> &records);
  /// has_undated says whether a description has no time of change that can be read.
  bool has_undated() const;

  /// index_words returns the index as its file must be, nothing without one.
  std::optional<std::vector<uint32_t>> index_words() const;
  void forget_index() { indexed_.reset(); }
  void forget_map() {
    has_map_ = false;
    newest_in_map_ = 0;
  }
  bool exists() const { return exists_; }
  /// has_long_records says whether a record may be longer than a page.
  bool has_long_records() const;

 private:
  static constexpr uint64_t no_number = uint64_t{1} << 32;

  struct Entry {
    uint32_t time, number, size, checksum;
    bool operator==(const Entry &) const = default;
  };

  struct Refused {
    Result result;
    std::string kept;
    std::string reasons;  // the elements of the array in a report as JSON
    int64_t count = 0;
    int64_t offset = 0;
    int64_t number = 0;
    int64_t line = 1;
    std::map<int64_t, int64_t> line_at;  // of what begins at an offset
    void pass(const std::string &text);
    void add(const StreamObject &object, int64_t number, int64_t offset, const std::string &reason);
  };

  struct Figure {
    const char *name;
    int64_t value;
  };

  void begin_writing(const Flags &flags);
  Result absent() const;
  Result fail(Result result, const std::string &text) const;
  static Result report(Result result, const std::string &verb, const Flags &flags, const std::vector<Figure> &figures,
                       bool has_summary, const std::string &rejects = "");
  std::optional<uint32_t> number_of(const std::string &url) const;
  /// next is the number that comes next, or no_number. Without a map the records count beside what the database tells.
  uint64_t next() const;
  /// newest is the newest time of change that is known to have been given; newest_in_records what the database alone
  /// tells.
  time_t newest() const { return has_map_ ? newest_in_map_ : newest_in_records(); }
  time_t newest_in_records() const;
  void commit(uint64_t next_number, time_t newest, bool has_changes);
  uint32_t next_stored() const { return next() == no_number ? 0 : static_cast<uint32_t>(next()); }
  std::vector<Entry> entries() const;

  std::string path_;
  bool exists_ = false, has_map_ = false;
  bool is_index_earlier_ = false;                      // made before the catalog was made or imported
  uint64_t next_in_database_ = 0, next_in_map_ = 0;    // 0 when a database was never written by minidba
  time_t newest_in_database_ = 0, newest_in_map_ = 0;  // the map's file stays when it is not of the database any more
  std::map<uint32_t, Description> descriptions_;
  std::map<uint32_t, std::string> texts_;  // of the same, as they are kept
  std::optional<std::vector<Entry>> indexed_;
};

}  // namespace rdm

#endif
