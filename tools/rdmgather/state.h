// SPDX-License-Identifier: MIT
/// What is remembered of documents from run to run.
#ifndef RDMGATHER_STATE_H
#define RDMGATHER_STATE_H

#include <map>
#include <optional>
#include <string>

#include "catalog/os/atomic_writer.h"
#include "tools/rdmgather/listing.h"

namespace rdm::gather {

struct Known {
  Print print;
  std::string md5;
};

/// State is a file of lines: the form, the base URL, "SIZE MODIFIED CHANGED MD5 PATH" for each document, and the MD5 of
/// all text before. Paths are encoded as in URLs.
class State {
 public:
  /// State locks the file and reads it. Without a path, nothing is remembered. Throws a Failure if the file is damaged,
  /// in use, or of another base URL.
  State(const std::string &path, const std::string &base_url);

  /// before returns the documents of the last run, by their encoded paths.
  const std::map<std::string, Known> &before() const { return before_; }
  /// remember adds a document for the next run, unless it has been added.
  void remember(const std::string &path, const Known &document) { now_.try_emplace(path, document); }
  /// commit replaces the file by what was remembered.
  void commit();

 private:
  void read(const std::string &path);

  std::string head_;  // first lines
  std::optional<catalog::AtomicWriter> file_;
  std::map<std::string, Known> before_, now_;
};

}  // namespace rdm::gather

#endif
