/// The objects of a SOIF stream, one at a time, each judged on its own.
#ifndef MINIDBA_SOIF_STREAM_H
#define MINIDBA_SOIF_STREAM_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "libcs/guard.h"
#include "tools/minidba/files.h"

namespace minidba {

/// SoifStream reads objects from a file. After an object that is malformed it goes on at the next line that begins with
/// "@", so that a wrong size costs no other object.
class SoifStream {
 public:
  /// The input is read from where it stands; one that cannot be read twice is first copied beside `beside`.
  SoifStream(int input, const std::string &beside);

  struct Item {
    int64_t number;      // of the object in the stream, from 1
    int64_t offset;      // of its "@", in bytes
    soif_ptr object;     // null when it is malformed
    std::string reason;  // why it is malformed
  };
  /// next returns the next object, or nothing at the end.
  std::optional<Item> next();

 private:
  std::optional<int64_t> find_object(int64_t from, bool at_line_start);

  struct close_file {
    void operator()(FILE *file) const { std::fclose(file); }
  };
  std::unique_ptr<FILE, close_file> file_;
  int64_t position_ = 0;
  int64_t number_ = 0;
  bool resynchronise_ = false;
};

}  // namespace minidba

#endif
