// SPDX-License-Identifier: MIT
/// Descriptions in Dublin Core: records of the fifteen simple elements, each any number of times, as XML.
///
/// Elements and attributes have the same names, except creator (author), subject (keywords), format (content-type),
/// date (last-modified) and identifier (the URL); a map can say otherwise. An element that a record has several times
/// is as many numbered instances. A text that XML cannot hold is "base64:" and base64.
#ifndef SOIF_FORMATS_DUBLIN_CORE_H
#define SOIF_FORMATS_DUBLIN_CORE_H

#include "tools/soif/conversion.h"

namespace rdm::soif_tool {

/// read_dc takes each element that has elements of Dublin Core as children for a record. The URL is the first
/// identifier with "://", otherwise the first; further ones are attributes "identifier".
void read_dc(ByteSource &source, const Conversion &conversion, Taker &taker);

/// read_oai reads answers to ListRecords and GetRecord of OAI-PMH. Without an identifier with "://", or if the
/// conversion says so, the URL is the identifier in the header of the record. The attributes oai-identifier,
/// oai-datestamp and oai-set hold the header. Throws a Failure for an answer that is an error.
void read_oai(ByteSource &source, const Conversion &conversion, Taker &taker);

/// dc_writer writes a document with a record for each description. Attributes without an element are left out, and so
/// are empty values, templates, and headers of messages and exports.
std::unique_ptr<Writer> dc_writer(Output &output, const Conversion &conversion);

/// dublin_core_map returns the names of attributes in Dublin Core, where `changes` does not say otherwise.
NameMap dublin_core_map(const NameMap &changes);

inline constexpr std::string_view dublin_core_space = "http://purl.org/dc/elements/1.1/";
/// is_dublin_core returns true for the name of an element.
bool is_dublin_core(std::string_view element);

}  // namespace rdm::soif_tool

#endif
