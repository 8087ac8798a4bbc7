// SPDX-License-Identifier: MIT
#include "tools/soif/formats/xml_events.h"

#include <expat.h>

#include <exception>
#include <memory>
#include <new>
#include <type_traits>

namespace rdm::soif_tool {
namespace {

constexpr char separator = '\n';  // between namespace and name; no URI contains it
constexpr int deepest_element = 64;

using ParserPtr = std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)>;

XmlName name_of(std::string_view text) {
  const size_t at = text.rfind(separator);
  return at == std::string_view::npos ? XmlName{{}, text} : XmlName{text.substr(0, at), text.substr(at + 1)};
}

/// Events calls the handler for the events of the parser. No exception may pass the parser, which is C: it is kept, and
/// the parser stopped.
class Events {
 public:
  explicit Events(XmlHandler &handler)
      : handler_(handler), parser_(XML_ParserCreateNS(nullptr, separator), XML_ParserFree) {
    if (!parser_) throw std::bad_alloc();
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(parser_.get(), start, end);
    XML_SetCharacterDataHandler(parser_.get(), text);
    XML_SetStartDoctypeDeclHandler(parser_.get(), doctype);
  }

  XmlFault read(ByteSource &source) {
    for (;;) {
      const std::string_view bytes = source.block();
      handler_.reads(bytes);
      const auto status = XML_Parse(parser_.get(), bytes.data(), static_cast<int>(bytes.size()), bytes.empty() ? 1 : 0);
      if (failure_) std::rethrow_exception(failure_);
      if (status != XML_STATUS_OK) return fault();
      if (bytes.empty()) return {};
    }
  }

 private:
  template <typename Work>
  void guarded(Work work) noexcept {
    try {
      work();
    } catch (...) {
      failure_ = std::current_exception();
      XML_StopParser(parser_.get(), XML_FALSE);
    }
  }

  void refuse(const char *reason) {
    refusal_ = reason;
    XML_StopParser(parser_.get(), XML_FALSE);
  }

  int64_t offset() const { return XML_GetCurrentByteIndex(parser_.get()); }
  Place place() const {
    return {static_cast<int64_t>(XML_GetCurrentLineNumber(parser_.get())),
            static_cast<int64_t>(XML_GetCurrentColumnNumber(parser_.get())) + 1};
  }
  XmlFault fault() const {
    if (refusal_ != nullptr) return {refusal_, place()};
    return {std::string("not XML: ") + XML_ErrorString(XML_GetErrorCode(parser_.get())), place()};
  }

  static void XMLCALL start(void *self, const char *name, const char **attributes) {
    auto &events = *static_cast<Events *>(self);
    if (++events.depth_ > deepest_element) return events.refuse("nested too deep");
    events.guarded([&] { events.handler_.start({name_of(name), attributes}, events.offset(), events.place()); });
  }
  static void XMLCALL end(void *self, const char *) {
    auto &events = *static_cast<Events *>(self);
    --events.depth_;
    events.guarded([&] { events.handler_.end(events.offset() + XML_GetCurrentByteCount(events.parser_.get())); });
  }
  static void XMLCALL text(void *self, const char *text, int size) {
    auto &events = *static_cast<Events *>(self);
    events.guarded([&] { events.handler_.text({text, static_cast<size_t>(size)}); });
  }
  static void XMLCALL doctype(void *self, const char *, const char *, const char *, int) {
    static_cast<Events *>(self)->refuse("a document type declaration is refused");
  }

  XmlHandler &handler_;
  ParserPtr parser_;
  int depth_ = 0;
  const char *refusal_ = nullptr;
  std::exception_ptr failure_;
};

}  // namespace

std::string_view XmlElement::attribute(std::string_view space, std::string_view local) const {
  for (const char *const *at = attributes; *at != nullptr; at += 2)
    if (const XmlName found = name_of(*at); found.space == space && found.local == local) return at[1];
  return {};
}

XmlFault read_xml(ByteSource &source, XmlHandler &handler) { return Events(handler).read(source); }

}  // namespace rdm::soif_tool
