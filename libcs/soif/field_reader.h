// SPDX-License-Identifier: MIT
/// Reading a few attributes of an object where they stand in a text, without making an object. Header only; of libcs it
/// needs nothing that is not in headers.
#ifndef LIBCS_SOIF_FIELD_READER_H
#define LIBCS_SOIF_FIELD_READER_H

#include <span>

#include "libcs/soif/object_reader.h"
#include "qxapi/guard.h"

namespace rdm::soif {

/// Field is an attribute to be read. `name` is in lower case. `value` is as of soif_findval: that of the first
/// attribute of this name, or null; it may be changed, and is valid as long as the text and the reader.
struct Field {
  std::string_view name;
  char *value = nullptr;
  size_t size = 0;
};

/// FieldReader reads the objects of a text one after the other.
class FieldReader {
 public:
  /// `text` is `length` bytes and room for one more: the reader writes a NUL after each value that it has found.
  FieldReader(char *text, size_t length) noexcept : slot_(slot_of(text, length)), input_(slot_) {}

  /// next reads the next object into `fields`. Returns false at the end of the text, after a syntax error, or if memory
  /// fails for a value that goes past the end of the text.
  bool next(std::span<Field> fields) noexcept;

  /// template_name returns that of the object read last.
  std::string_view template_name() const noexcept { return template_name_; }
  /// left returns the number of bytes that have not been read.
  size_t left() const noexcept { return input_.rest().size(); }

  /* ---- For ObjectReader ---- */

  bool begin(std::string_view template_name, std::string_view /*url*/) noexcept;
  bool wants(std::string_view name) const noexcept { return missing(name) != nullptr; }
  bool value(std::string_view name, size_t size, StringInput &input) noexcept;

 private:
  static soif_stream slot_of(const char *text, size_t length) noexcept;
  Field *missing(std::string_view name) const noexcept;
  char *padded(size_t size, StringInput &input) noexcept;

  soif_stream slot_;
  StringInput input_;
  std::span<Field> fields_;
  std::string_view template_name_;
  HostText padded_;
};

inline soif_stream FieldReader::slot_of(const char *text, size_t length) noexcept {
  soif_stream slot{};
  slot.input_string = text;
  slot.input_length = static_cast<int32_t>(length);
  return slot;
}

inline bool FieldReader::next(std::span<Field> fields) noexcept {
  fields_ = fields;
  for (Field &field : fields) field.value = nullptr;
  if (!ObjectReader(input_, *this).read()) return false;
  // Only now: the byte after a value may have been part of the next name.
  for (const Field &field : fields)
    if (field.value != nullptr) field.value[field.size] = '\0';
  return true;
}

inline bool FieldReader::begin(std::string_view template_name, std::string_view) noexcept {
  template_name_ = template_name.empty() ? "OBJECT" : template_name;
  return true;
}

/// missing returns the field of this name if its value has not been found yet.
inline Field *FieldReader::missing(std::string_view name) const noexcept {
  for (Field &field : fields_)
    if (field.value == nullptr && field.name == name) return &field;
  return nullptr;
}

inline bool FieldReader::value(std::string_view name, size_t size, StringInput &input) noexcept {
  Field *const field = missing(name);
  field->size = size;
  const std::string_view rest = input.rest();
  if (size > rest.size()) return (field->value = padded(size, input)) != nullptr;
  field->value = const_cast<char *>(rest.data());
  input.skip(size);
  return true;
}

/// padded reads a value that goes past the end of the text: the last one, because nothing follows it.
inline char *FieldReader::padded(size_t size, StringInput &input) noexcept {
  padded_.reset(static_cast<char *>(host_alloc(size + 1)));
  if (padded_) input.read(padded_.get(), size);
  return padded_.get();
}

}  // namespace rdm::soif

#endif
