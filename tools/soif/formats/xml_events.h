// SPDX-License-Identifier: MIT
/// Reading XML as a stream of events. The only place that needs the XML library.
///
/// A document type declaration is refused, so no entity is expanded and nothing is fetched.
#ifndef SOIF_FORMATS_XML_EVENTS_H
#define SOIF_FORMATS_XML_EVENTS_H

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/soif/byte_source.h"
#include "tools/soif/taker.h"

namespace rdm::soif_tool {

/// XmlName is the name of an element or an attribute: the URI of its namespace, and the name in it.
struct XmlName {
  std::string_view space, local;
};

/// XmlElement is a start tag. `attribute` returns the value of an attribute, or an empty text.
struct XmlElement {
  XmlName name;
  const char *const *attributes;
  std::string_view attribute(std::string_view space, std::string_view local) const;
};

/// XmlHandler receives the events of a document. An offset is that of the tag in the input, or for an end tag that of
/// the byte after it.
class XmlHandler {
 public:
  virtual ~XmlHandler() = default;
  virtual void start(const XmlElement &element, int64_t offset, const Place &place) = 0;
  virtual void end(int64_t offset) = 0;
  virtual void text(std::string_view text) = 0;
  /// reads is called with the bytes that events will come from. After an exception, events end.
  virtual void reads(std::string_view bytes) = 0;
};

/// XmlFault is the reason why an input is no document.
struct XmlFault {
  std::string reason;  // empty if it is one
  Place place;
};

/// read_xml reads a document, in UTF-8, UTF-16, ISO 8859-1 or ASCII. Elements that are nested more than 64 deep are a
/// fault. It passes on exceptions of the handler.
XmlFault read_xml(ByteSource &source, XmlHandler &handler);

}  // namespace rdm::soif_tool

#endif
