// SPDX-License-Identifier: MIT
#include <cstring>

#include "libcs/guard.h"
#include "libcs/soif/input.h"
#include "libcs/soif/model.h"
#include "libcs/soif/selection.h"
#include "libcs/soif/stream.h"
#include "qxapi/ascii.h"

using namespace rdm;

namespace {

using soif::end_of_input;

std::string_view lower_case(std::string_view name, char *buffer) {
  std::transform(name.begin(), name.end(), buffer, ascii::lower);
  return {buffer, name.size()};
}

/// Parser reads objects from one stream. `Input` is StringInput or FileInput.
template <typename Input>
class Parser {
 public:
  Parser(Input &input, char **accept) noexcept : input_(input), accept_(accept) {}

  /// object returns the next object, or null at the end of input, after a syntax error, or if allocation fails.
  SoifPtr object() noexcept {
    if (!input_.skip_past('@')) return nullptr;
    SoifPtr object = header();
    return object && attributes(object.get()) ? std::move(object) : nullptr;
  }

 private:
  /// header reads template name and URL. The brace between them may be missing or repeated; a brace directly after the
  /// template name is part of the name.
  SoifPtr header() noexcept {
    const auto template_name = soif::read_template_name(input_, name_);
    if (!template_name) return nullptr;
    const auto url = soif::read_url(input_, token_);
    if (!url) return nullptr;
    return soif::make_object(soif::up_to_nul(*template_name), soif::up_to_nul(*url), 0);
  }

  /// attributes reads up to "}" or the end of input, which both complete the object. Returns false after a syntax
  /// error, or if allocation fails.
  bool attributes(SOIF *object) noexcept {
    // The pairs are made for this object, so the table need not copy them.
    const soif::CopySwitch as_they_are(object->attrs, cslist_copy_nop);
    for (;;) {
      const int c = soif::read_past(input_, soif::is_space);
      if (c == end_of_input || c == '}') return true;
      input_.back_up(c);
      if (!attribute(object)) return false;
    }
  }

  bool attribute(SOIF *object) noexcept {
    const auto name_as_written = soif::read_attribute_name(input_, name_);
    if (!name_as_written) return false;
    const std::string_view name = lower_case(soif::up_to_nul(*name_as_written), name_);
    const auto digits = soif::read_size(input_, token_);
    if (!digits) return false;
    const int32_t size = soif::size_of(*digits);
    if (size < 0 || size > soif::largest_value || !soif::read_size_end(input_)) return false;
    // An excessive size is damage even if the accept list drops the value.
    if (!input_.may_hold(static_cast<size_t>(size))) return false;
    if (soif::is_selected(accept_, name)) return value(object, name, size);
    input_.skip(static_cast<size_t>(size));
    return true;
  }

  bool value(SOIF *object, std::string_view name, int32_t vsize) noexcept {
    const auto size = static_cast<size_t>(vsize);
    HostText bytes(static_cast<char *>(host_alloc(size + 1)));
    if (!bytes || !input_.read(bytes.get(), size)) return false;
    bytes.get()[size] = '\0';
    soif::AvPairPtr pair = soif::make_avpair(name, bytes, vsize);
    return pair && soif::insert_made(object, pair->attribute, pair, vsize);
  }

  Input &input_;
  char **const accept_;
  char name_[soif::token_limit];
  char token_[soif::token_limit];
};

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
    *out = Parser(input, slot->accept).object().release();
  } else {
    soif::StringInput input(*slot);
    *out = Parser(input, slot->accept).object().release();
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
