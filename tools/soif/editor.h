// SPDX-License-Identifier: MIT
/// Having a text changed in the editor of the user.
#ifndef SOIF_EDITOR_H
#define SOIF_EDITOR_H

#include <string>

namespace rdm::soif_tool {

/// EditedFile is a temporary file with a text, which only its owner can read. It is removed at the end of its scope,
/// unless keep was called.
class EditedFile {
 public:
  /// EditedFile creates the file in the directory of TMPDIR. Throws a SystemFailure.
  explicit EditedFile(const std::string &text);
  EditedFile(const EditedFile &) = delete;
  EditedFile &operator=(const EditedFile &) = delete;
  ~EditedFile();

  /// edit runs the editor of the variable EDITOR, or vi, and waits for its end. Throws a Failure if it cannot be run or
  /// ends with another status than 0.
  void edit() const;
  /// text returns what the file contains now. Throws a SystemFailure if it cannot be read.
  std::string text() const;
  /// keep leaves the file behind.
  void keep() { is_kept_ = true; }
  const std::string &path() const { return path_; }

 private:
  std::string path_;
  bool is_kept_ = false;
};

}  // namespace rdm::soif_tool

#endif
