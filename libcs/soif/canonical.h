// SPDX-License-Identifier: MIT
/// Records in the form that the printer writes. Header only; of libcs it needs nothing that is not in headers.
///
/// Parsing such a record and printing the object gives the same bytes, so these can be sent as they are. With an accept
/// list, the result is the record without the lines of the other attributes. A record has this form if and only if it
/// is exactly
///
///     @TEMPLATE { URL
///     NAME{SIZE}:<tab>VALUE
///     }
///
/// with a newline after each line, and
/// - template name and URL are tokens: 1 to 4,095 bytes without white space and NUL; the URL does not begin with "{";
/// - names have at most 4,095 bytes, no "{", no NUL and no upper-case letter, and do not begin with white space or "}"
///   (they may be empty);
/// - sizes are decimal, without sign and leading zeros, from 1 to the largest value that the parser takes;
/// - the buckets of the attributes in the object's table do not decrease: the printer writes bucket by bucket.
#ifndef LIBCS_SOIF_CANONICAL_H
#define LIBCS_SOIF_CANONICAL_H

#include <cstring>
#include <limits>

#include "libcs/adt/name_hash.h"
#include "libcs/soif/grammar.h"
#include "libcs/soif/selection.h"

namespace rdm::soif {

/// Pieces are parts of a record, in order. Parts that follow each other without a gap count as one.
class Pieces {
 public:
  static constexpr size_t limit = 32;

  void clear() noexcept { count_ = size_ = 0; }
  /// add returns false if there are too many.
  bool add(std::string_view part) noexcept;

  const std::string_view *begin() const noexcept { return parts_; }
  const std::string_view *end() const noexcept { return parts_ + count_; }
  size_t size() const noexcept { return size_; }  // bytes of all of them

 private:
  std::string_view parts_[limit];
  size_t count_ = 0;
  size_t size_ = 0;
};

inline bool Pieces::add(std::string_view part) noexcept {
  size_ += part.size();
  if (count_ > 0 && parts_[count_ - 1].end() == part.begin()) {
    parts_[count_ - 1] = {parts_[count_ - 1].data(), parts_[count_ - 1].size() + part.size()};
    return true;
  }
  if (count_ == limit) return false;
  parts_[count_++] = part;
  return true;
}

/// Canonical recognises records in the form of the printer. It remembers what it found out about names.
class Canonical {
 public:
  /// `accept` is an accept list as of soif_parse_set_accept_attr, borrowed.
  explicit Canonical(const char *const *accept = nullptr) noexcept : accept_(accept) {}

  /// printed stores the pieces that parsing a record with the accept list, and printing the object, would give. Returns
  /// false if the record has another form, or if the selected attributes are too many pieces.
  bool printed(std::string_view record, Pieces &pieces) noexcept;

 private:
  /// Name is what is known of an attribute name: a valid one has a bucket below bucket_count.
  struct Name {
    char text[29];
    uint8_t length;  // 0: none
    uint8_t bucket;
    bool selected;
  };
  static constexpr uint8_t invalid = 0xFF;
  static constexpr size_t cache_size = 128;
  static_assert(bucket_count < invalid);

  /// Attribute is one line of a record.
  struct Attribute {
    const char *end;
    uint8_t bucket;
    bool selected;
  };

  static const char *token_end(const char *at, const char *end) noexcept;
  static const char *header_end(const char *at, const char *end) noexcept;
  static const char *value_end(const char *size, const char *end) noexcept;
  bool read(const char *at, const char *end, Attribute &attribute) noexcept;
  Name examine(std::string_view name) const noexcept;
  Name look_up(std::string_view name) noexcept;

  const char *const *accept_;
  Name names_[cache_size] = {};
};

inline bool Canonical::printed(std::string_view record, Pieces &pieces) noexcept {
  pieces.clear();
  const char *const end = record.data() + record.size();
  const char *at = header_end(record.data(), end);
  if (at == nullptr || record.size() > std::numeric_limits<int32_t>::max()) return false;
  if (!pieces.add({record.data(), at})) return false;
  Attribute attribute{at, 0, false};
  for (uint8_t bucket = 0; at != end && *at != '}'; at = attribute.end, bucket = attribute.bucket) {
    if (!read(at, end, attribute) || attribute.bucket < bucket) return false;
    if (attribute.selected && !pieces.add({at, attribute.end})) return false;
  }
  return std::string_view(at, end) == "}\n" && pieces.add({at, end});
}

/// token_end returns the end of the template name or URL that begins at `at`, or null.
inline const char *Canonical::token_end(const char *at, const char *end) noexcept {
  const char *const limit = at + std::min<size_t>(static_cast<size_t>(end - at), token_limit);
  const char *const token = at;
  while (at != limit && *at != '\0' && !is_space(*at)) ++at;
  return at != token && at != limit && *at != '\0' ? at : nullptr;
}

/// header_end returns the beginning of the line after the header, or null.
inline const char *Canonical::header_end(const char *at, const char *end) noexcept {
  constexpr std::string_view open = " { ";
  if (at == end || *at != '@' || (at = token_end(at + 1, end)) == nullptr) return nullptr;
  if (!std::string_view(at, end).starts_with(open)) return nullptr;
  at += open.size();
  if (at == end || *at == '{' || (at = token_end(at, end)) == nullptr) return nullptr;
  return *at == '\n' ? at + 1 : nullptr;
}

/// value_end returns the beginning of the line after a value whose size begins at `size`, or null.
inline const char *Canonical::value_end(const char *size, const char *end) noexcept {
  const char *at = size;
  size_t value = 0;
  // A number with one digit more than the limit is above it.
  for (; at != end && ascii::is_digit(*at) && value <= size_t{largest_value}; ++at)
    value = value * 10 + static_cast<size_t>(*at - '0');
  if (at == size || *size == '0' || value > size_t{largest_value}) return nullptr;
  if (!std::string_view(at, end).starts_with(size_end)) return nullptr;
  at += size_end.size();
  return static_cast<size_t>(end - at) > value && at[value] == '\n' ? at + value + 1 : nullptr;
}

/// read reads the line of an attribute. Returns false if it has another form.
inline bool Canonical::read(const char *at, const char *end, Attribute &attribute) noexcept {
  const size_t longest = std::min<size_t>(static_cast<size_t>(end - at), token_limit);
  const auto *const brace = static_cast<const char *>(std::memchr(at, '{', longest));
  if (brace == nullptr) return false;
  const Name name = look_up({at, brace});
  attribute = {value_end(brace + 1, end), name.bucket, name.selected};
  return name.bucket != invalid && attribute.end != nullptr;
}

/// examine finds out about a name. Its text is not stored.
inline Canonical::Name Canonical::examine(std::string_view name) const noexcept {
  Name found{};
  const auto is_wrong = [](char c) { return c == '\0' || ascii::is_upper(c); };
  const bool wrong_start = !name.empty() && (is_space(name[0]) || name[0] == '}');
  found.bucket = wrong_start || std::any_of(name.begin(), name.end(), is_wrong)
                     ? invalid
                     : static_cast<uint8_t>(name_hash(name) % bucket_count);
  found.selected = found.bucket != invalid && is_selected(accept_, name);
  return found;
}

/// look_up returns what is known of a name. Short names are remembered.
inline Canonical::Name Canonical::look_up(std::string_view name) noexcept {
  if (name.empty() || name.size() > sizeof(Name::text)) return examine(name);
  const auto byte = [&](size_t i) { return size_t{static_cast<unsigned char>(name[i])}; };
  Name &known = names_[(byte(0) + 5 * byte(name.size() - 1) + 31 * name.size()) % cache_size];
  if (std::string_view(known.text, known.length) == name) return known;
  known = examine(name);
  known.length = static_cast<uint8_t>(name.copy(known.text, sizeof known.text));
  return known;
}

}  // namespace rdm::soif

#endif
