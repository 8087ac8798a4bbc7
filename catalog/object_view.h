// SPDX-License-Identifier: MIT
/// Objects read in place.
#ifndef CATALOG_OBJECT_VIEW_H
#define CATALOG_OBJECT_VIEW_H

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "libcs/soif/grammar.h"

namespace rdm::catalog {

/// ObjectView holds what the parser makes of a text, as views of that text. An object of the parser, with a few blocks
/// of memory for each attribute, costs several times as much to make and to print.
class ObjectView {
 public:
  /// read returns the first object of a text that outlives the result, or std::nullopt if the parser would return none.
  static std::optional<ObjectView> read(std::string_view text);
  /// read_closed returns the object that a text begins with, as read does, or std::nullopt if the text ends within it.
  /// `end` receives the offset after the object or, without one, an offset that reading did not pass.
  static std::optional<ObjectView> read_closed(std::string_view text, size_t &end);
  /// read_owned does the same as read with a text that the result keeps.
  static std::optional<ObjectView> read_owned(std::string text);

  /// template_name and url are "OBJECT" and "-" if the text has empty ones.
  std::string_view template_name() const { return template_name_; }
  std::string_view url() const { return url_; }

  /// find returns the value of the first attribute of a lower-case name, or std::nullopt if there is none. Like
  /// soif_findval to those who read a C string, it returns the value up to its first NUL.
  std::optional<std::string_view> find(std::string_view name) const;
  /// each calls `visit` with the name and the value of each attribute, in the order of the text.
  template <typename Visitor>
  void each(const Visitor &visit) const {
    for (const Attribute &attribute : attributes_)
      if (!attribute.is_erased) visit(name_of(attribute), attribute.value);
  }
  /// erase removes all attributes of a lower-case name.
  void erase(std::string_view name);
  /// append adds an attribute. Its value must outlive this object.
  void append(std::string_view name, std::string_view value);

  /// print returns the text that the printer writes. If `place` is not null, it receives the offset of the value of the
  /// last attribute that was appended, which must not be empty.
  std::string print(size_t *place = nullptr) const;

 private:
  friend class ViewBuilder;
  static constexpr uint32_t none = std::numeric_limits<uint32_t>::max();

  /// Attribute is an attribute of a bucket of the parser's table.
  struct Attribute {
    uint32_t name_offset, name_size;  // in names_
    uint32_t next;                    // in the bucket, or `none`
    bool is_erased;
    std::string_view value;
  };
  /// Bucket is a list of attributes: the printer writes bucket by bucket.
  struct Bucket {
    uint32_t first = none, last = none;
  };

  std::string_view name_of(const Attribute &attribute) const {
    return std::string_view(names_).substr(attribute.name_offset, attribute.name_size);
  }
  size_t printed_limit() const;

  std::unique_ptr<std::string> text_;  // only of read_owned
  std::string_view template_name_, url_;
  std::string names_;
  std::vector<Attribute> attributes_;
  std::array<Bucket, soif::bucket_count> buckets_;
};

}  // namespace rdm::catalog

#endif
