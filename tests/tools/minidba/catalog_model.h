// SPDX-License-Identifier: MIT
/// A model of a catalog: descriptions by number as plain values, the used numbers, index and URL map. Each verb returns
/// the expected output and changes the model.
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

/// A parsed description. Names are in lower case; empty values are left out.
struct Description {
  std::string url;
  std::map<std::string, std::vector<std::string>> attributes;
  bool operator==(const Description &) const = default;
};

/// read_description parses a record; nothing if the record is not as minidba prints it.
std::optional<Description> read_description(const std::string &record);

/// An object of a stream, as it is sent and as it must be parsed.
struct StreamObject {
  std::string text;
  std::string refusal;  // why it is rejected; empty for a description
  std::string kept;     // its bytes in the file of --rejects
  Description description;
  std::string number;  // minidba-number; empty without one
};

/// A stream of objects with an optional header.
struct Stream {
  std::string header;
  std::optional<uint64_t> next_number, count;  // in the header
  std::vector<StreamObject> objects;
  std::string text() const;
  /// fault returns how the stream contradicts its header; empty if it does not. Only an import refuses more objects
  /// than announced.
  std::string fault(bool may_have_more) const;
};

struct Flags {
  bool dry_run = false, json = false, quiet = false, rejects = false, replace = false;
  bool no_header = false, allow_empty = false;
};

/// Result is the output of a verb and the file of rejected objects; nothing if the verb does not write that file.
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

  /// put_by_another and remove_by_another are changes by another program, which writes only the database. They return
  /// false and do nothing if another description has the URL, or if there is none to remove.
  bool put_by_another(uint32_t number, const Description &description);
  bool remove_by_another(uint32_t number);

  Result unclassified() const;
  Result get(const std::vector<std::string> &words) const;
  Result list(time_t since, bool as_table) const;
  Result stats() const;
  Result export_whole() const;
  Result verify() const;

  /// adopt compares the records with the model and keeps their texts. It returns the first difference; empty if none.
  std::string adopt(const std::map<std::string, std::string> &records);
  /// has_undated returns true if a description has no valid time of change.
  bool has_undated() const;

  /// index_words returns the expected 32-bit numbers of the index; nothing without an index.
  std::optional<std::vector<uint32_t>> index_words() const;
  void forget_index() { indexed_.reset(); }
  void forget_map() {
    has_map_ = false;
    newest_in_map_ = 0;
  }
  bool exists() const { return exists_; }
  /// has_long_records returns true if a record may be longer than a page.
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
    std::map<int64_t, int64_t> line_at;  // lines by the offset of their object
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
  /// next returns the next number, or no_number. Without a map it is that of the database or above all records.
  uint64_t next() const;
  /// newest returns the newest time of change, newest_in_records the newest one in the database.
  time_t newest() const { return has_map_ ? newest_in_map_ : newest_in_records(); }
  time_t newest_in_records() const;
  void commit(uint64_t next_number, time_t newest, bool has_changes);
  uint32_t next_stored() const { return next() == no_number ? 0 : static_cast<uint32_t>(next()); }
  std::vector<Entry> entries() const;

  std::string path_;
  bool exists_ = false, has_map_ = false;
  bool is_index_earlier_ = false;                      // made before the catalog was made or imported
  uint64_t next_in_database_ = 0, next_in_map_ = 0;    // 0 if minidba never wrote the database
  time_t newest_in_database_ = 0, newest_in_map_ = 0;  // the file of the map stays if it belongs to another snapshot
  std::map<uint32_t, Description> descriptions_;
  std::map<uint32_t, std::string> texts_;  // their records
  std::optional<std::vector<Entry>> indexed_;
};

}  // namespace rdm

#endif
