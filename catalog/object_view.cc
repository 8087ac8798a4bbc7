// SPDX-License-Identifier: MIT
#include "catalog/object_view.h"

#include <algorithm>
#include <charconv>

#include <libcs/soif.h>

#include "libcs/adt/name_hash.h"
#include "libcs/soif/object_reader.h"

namespace rdm::catalog {
namespace {

constexpr size_t usual_attributes = 16, usual_names = 256;
constexpr size_t longest_size = 10;  // digits

uint32_t bucket_of(std::string_view name) { return name_hash(name) % soif::bucket_count; }

/// Writer writes texts one after the other to room that is large enough.
class Writer {
 public:
  explicit Writer(char *at) : at_(at) {}
  Writer &put(std::string_view text) {
    at_ = std::copy(text.begin(), text.end(), at_);
    return *this;
  }
  Writer &put_number(size_t number) {
    at_ = std::to_chars(at_, at_ + longest_size, number).ptr;
    return *this;
  }
  const char *end() const { return at_; }

 private:
  char *at_;
};

}  // namespace

/// ViewBuilder makes a view of what an ObjectReader reads.
class ViewBuilder {
 public:
  bool begin(std::string_view template_name, std::string_view url) {
    view_.template_name_ = template_name.empty() ? "OBJECT" : template_name;
    view_.url_ = url.empty() ? "-" : url;
    view_.attributes_.reserve(usual_attributes);
    view_.names_.reserve(usual_names);
    return true;
  }
  static bool wants(std::string_view) { return true; }
  bool value(std::string_view name, size_t size, soif::StringInput &input) {
    const std::string_view present = input.rest().substr(0, size);
    view_.append(name, present);
    missing_ = size - present.size();
    value_end_ = present.data() + present.size();
    input.skip(size);
    return true;
  }

  /// missing returns how many bytes of the last value are past the end of the text.
  size_t missing() const { return missing_; }
  /// value_end returns the end of the last value in the text, or null if there is none.
  const char *value_end() const { return value_end_; }
  ObjectView take() { return std::move(view_); }

 private:
  ObjectView view_;
  size_t missing_ = 0;
  const char *value_end_ = nullptr;
};

namespace {

/// read_into sets `end` to the offset at which reading has ended.
bool read_into(ViewBuilder &builder, std::string_view text, size_t &end) {
  soif_stream slot{};
  slot.input_string = text.data();
  slot.input_length = static_cast<int32_t>(text.size());
  bool is_read = false;
  {
    soif::StringInput input(slot);
    is_read = soif::ObjectReader(input, builder).read();
  }
  end = static_cast<size_t>(slot.input_position);
  return is_read;
}

}  // namespace

std::optional<ObjectView> ObjectView::read(std::string_view text) {
  ViewBuilder builder;
  size_t end = 0;
  if (!read_into(builder, text, end)) return std::nullopt;
  // The parser fills the rest of a value with 0xFF.
  if (builder.missing() > 0) return read_owned(std::string(text).append(builder.missing(), '\xFF'));
  return builder.take();
}

std::optional<ObjectView> ObjectView::read_closed(std::string_view text, size_t &end) {
  ViewBuilder builder;
  if (!read_into(builder, text, end)) return std::nullopt;
  const bool is_closed = end > 0 && text[end - 1] == '}' && text.data() + end != builder.value_end();
  return is_closed ? std::optional(builder.take()) : std::nullopt;
}

std::optional<ObjectView> ObjectView::read_owned(std::string text) {
  auto kept = std::make_unique<std::string>(std::move(text));
  std::optional<ObjectView> view = read(*kept);
  if (view && !view->text_) view->text_ = std::move(kept);
  return view;
}

std::optional<std::string_view> ObjectView::find(std::string_view name) const {
  for (uint32_t at = buckets_[bucket_of(name)].first; at != none; at = attributes_[at].next)
    if (!attributes_[at].is_erased && name_of(attributes_[at]) == name) return soif::up_to_nul(attributes_[at].value);
  return std::nullopt;
}

void ObjectView::erase(std::string_view name) {
  for (uint32_t at = buckets_[bucket_of(name)].first; at != none; at = attributes_[at].next)
    if (name_of(attributes_[at]) == name) attributes_[at].is_erased = true;
}

void ObjectView::append(std::string_view name, std::string_view value) {
  const auto at = static_cast<uint32_t>(attributes_.size());
  attributes_.push_back({static_cast<uint32_t>(names_.size()), static_cast<uint32_t>(name.size()), none, false, value});
  names_ += name;
  Bucket &bucket = buckets_[bucket_of(name)];
  (bucket.first == none ? bucket.first : attributes_[bucket.last].next) = at;
  bucket.last = at;
}

/// printed_limit returns a size that the printed text does not exceed.
size_t ObjectView::printed_limit() const {
  constexpr size_t line = longest_size + 5, around = 8;  // braces, colon, tab and newline
  size_t size = template_name_.size() + url_.size() + names_.size() + around;
  for (const Attribute &attribute : attributes_) size += attribute.value.size() + line;
  return size;
}

std::string ObjectView::print(size_t *place) const {
  std::string text(printed_limit(), '\0');
  Writer writer(text.data());
  writer.put("@").put(template_name_).put(" { ").put(url_).put("\n");
  for (const Bucket &bucket : buckets_)
    for (uint32_t at = bucket.first; at != none; at = attributes_[at].next) {
      const Attribute &attribute = attributes_[at];
      // The printer leaves out empty values.
      if (attribute.is_erased || attribute.value.empty()) continue;
      writer.put(name_of(attribute)).put("{").put_number(attribute.value.size()).put(soif::size_end);
      if (place != nullptr && at + 1 == attributes_.size()) *place = static_cast<size_t>(writer.end() - text.data());
      writer.put(attribute.value).put("\n");
    }
  text.resize(static_cast<size_t>(writer.put("}\n").end() - text.data()));
  return text;
}

}  // namespace rdm::catalog
