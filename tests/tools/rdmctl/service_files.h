// SPDX-License-Identifier: MIT
/// A service with one catalog, set up for the program under test.
#ifndef TESTS_TOOLS_RDMCTL_SERVICE_FILES_H
#define TESTS_TOOLS_RDMCTL_SERVICE_FILES_H

#include <sys/stat.h>

#include <string>
#include <vector>

#include "support/directories.h"
#include "support/files.h"
#include "support/process.h"

namespace rdm {

inline const std::string program = support::in_build("bin/rdmctl");
inline const std::string csid = "x-catalog://localhost:80/books";

class ServiceFiles {
 public:
  /// A service whose commands are found in `bin`.
  explicit ServiceFiles(const std::string &bin = support::in_build("bin")) {
    directory_.write("csid.conf", "csid=\"" + csid + "\"\ncatalog-database=\"" + database() +
                                      "\"\ncsid=\"bare\"\nserver-description=\"nowhere\"\n");
    directory_.write("rdm.conf", "bindir=\"" + bin + "\"\ncsid-config=\"" + directory_.path("csid.conf") +
                                     "\"\ncsid-default=\"" + csid + "\"\nlogfile=\"" + directory_.path("rdm.log") +
                                     "\"\ntmpdir=\"" + temporary_.path() + "\"\ndebug-loglevel=\"0\"\n");
  }

  std::string config() const { return directory_.path("rdm.conf"); }
  std::string database() const { return directory_.path("books.db"); }
  std::string path(const std::string &name) const { return directory_.path(name); }
  std::string write(const std::string &name, const std::string &text) const { return directory_.write(name, text); }
  std::string temporary_directory() const { return temporary_.path(); }

  /// import runs the program on files, with `input` as its standard input.
  std::vector<std::string> import_command(const std::vector<std::string> &words) const {
    std::vector<std::string> arguments{program, "import", "--config", config(), "--csid", csid};
    arguments.insert(arguments.end(), words.begin(), words.end());
    return arguments;
  }
  support::Finished import(const std::vector<std::string> &words, const std::string &input = "") const {
    return support::run(import_command(words), input);
  }

 private:
  support::TemporaryDirectory directory_, temporary_;
};

}  // namespace rdm

#endif
