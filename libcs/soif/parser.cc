// SPDX-License-Identifier: MIT
#include <utility>

#include "libcs/guard.h"
#include "libcs/soif/input.h"
#include "libcs/soif/model.h"
#include "libcs/soif/object_reader.h"
#include "libcs/soif/selection.h"
#include "libcs/soif/stream.h"

using namespace rdm;

namespace {

/// Builder makes an object of what an ObjectReader reads.
class Builder {
 public:
  explicit Builder(char **accept) noexcept : accept_(accept) {}

  bool begin(std::string_view template_name, std::string_view url) noexcept {
    object_ = soif::make_object(template_name, url, 0);
    // The pairs are made for this object, so the table need not copy them.
    if (object_) cshashtable_set_copy(object_->attrs, cslist_copy_nop);
    return object_ != nullptr;
  }

  bool wants(std::string_view name) const noexcept { return soif::is_selected(accept_, name); }

  template <typename Input>
  bool value(std::string_view name, size_t size, Input &input) noexcept {
    HostText bytes(static_cast<char *>(host_alloc(size + 1)));
    if (!bytes || !input.read(bytes.get(), size)) return false;
    bytes.get()[size] = '\0';
    const auto vsize = static_cast<int32_t>(size);
    soif::AvPairPtr pair = soif::make_avpair(name, bytes, vsize);
    return pair && soif::insert_made(object_.get(), pair->attribute, pair, vsize);
  }

  SoifPtr take() noexcept {
    cshashtable_set_copy(object_->attrs, avpair_copy);
    return std::move(object_);
  }

 private:
  char **const accept_;
  SoifPtr object_;
};

/// parse returns the next object, or null at the end of input, after a syntax error, or if allocation fails.
template <typename Input>
SOIF *parse(Input &input, char **accept) noexcept {
  Builder builder(accept);
  return soif::ObjectReader(input, builder).read() ? builder.take().release() : nullptr;
}

int32_t input_length(const char *bytes, int32_t length) { return bytes != nullptr && length > 0 ? length : 0; }

}  // namespace

int soif_parse_init_file(FILE *file) noexcept {
  const int stream = soif::activate();
  _soif_state[stream].input_file = file;
  return stream;
}

int soif_parse_init_string(const char *bytes, int32_t length) noexcept {
  const int stream = soif::activate();
  _soif_state[stream].input_string = bytes;
  _soif_state[stream].input_length = input_length(bytes, length);
  return stream;
}

int soif_parse_set_accept_attr(int stream, char **accept) noexcept {
  soif_stream *slot = soif::slot(stream);
  if (slot != nullptr && slot->in_use != 0) slot->accept = accept;
  return 0;
}

int soif_parse(int stream, SOIF **out) noexcept {
  *out = nullptr;
  soif_stream *slot = soif::slot(stream);
  if (slot == nullptr) return 1;
  if (slot->input_file != nullptr) {
    soif::FileInput input(slot->input_file);
    *out = parse(input, slot->accept);
  } else {
    soif::StringInput input(*slot);
    *out = parse(input, slot->accept);
  }
  return *out != nullptr ? 0 : 1;
}

int soif_parse_is_eoi(int stream) noexcept {
  const soif_stream *slot = soif::slot(stream);
  if (slot == nullptr) return 1;
  if (slot->input_file != nullptr) return std::feof(slot->input_file);
  return slot->input_position >= slot->input_length ? 1 : 0;
}

int soif_parse_finish(int stream) noexcept {
  soif::deactivate(stream);
  return 0;
}
