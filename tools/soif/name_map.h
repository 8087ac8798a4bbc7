// SPDX-License-Identifier: MIT
/// The names that attributes have in another format.
#ifndef SOIF_NAME_MAP_H
#define SOIF_NAME_MAP_H

#include <map>
#include <string>
#include <string_view>

namespace rdm::soif_tool {

/// The names in a map that stand for the URL and the template. No attribute can have them.
inline constexpr char url_name[] = "@url";
inline constexpr char template_name[] = "@template";

/// NameMap maps names of attributes to names in another format and back. A name that is not in the map stays as it is.
/// An entry for a name is also one for its numbered instances: with "author = creator", author-2 is creator-2.
class NameMap {
 public:
  /// read adds the entries of a file: lines "attribute = name", empty ones, and comments that begin with "#". They
  /// replace entries of the same attribute. Throws a Failure with file and line: for another line, and for an attribute
  /// or a name that the file has twice.
  void read(const std::string &path);
  /// add adds or replaces an entry.
  void add(const std::string &attribute, const std::string &name);
  /// add_all adds the entries of another map.
  void add_all(const NameMap &other) {
    for (const auto &[attribute, name] : other.names_) add(attribute, name);
  }

  /// name_of returns the name of an attribute in the other format.
  std::string name_of(std::string_view attribute) const { return find(names_, attribute); }
  /// field_of returns the name of the URL or the template: without an entry for it, "url" or "template".
  std::string field_of(const char *which) const;
  /// attribute_of returns the attribute of a name in the other format, in lower case.
  std::string attribute_of(std::string_view name) const;
  /// knows returns true if an attribute, or the one it is an instance of, has an entry.
  bool knows(std::string_view attribute) const;

 private:
  using Names = std::map<std::string, std::string, std::less<>>;
  static std::string find(const Names &names, std::string_view name);
  void read_line(const std::string &line, std::map<std::string, int> &seen);

  Names names_, attributes_;
};

}  // namespace rdm::soif_tool

#endif
