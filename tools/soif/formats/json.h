// SPDX-License-Identifier: MIT
/// Descriptions as JSON: {"template": ..., "url": ..., "attributes": ...}.
///
/// "attributes" is an object with the attributes in their order. Attributes NAME-1 to NAME-n that follow each other are
/// one member NAME with a list of n values. If names would occur twice, or are not UTF-8, it is a list of {"name": ...,
/// "value": ...} instead. A text that is not UTF-8 is {"base64": "..."}. What the writers write, the readers read as
/// the same description.
#ifndef SOIF_FORMATS_JSON_H
#define SOIF_FORMATS_JSON_H

#include <string>

#include "tools/soif/conversion.h"

namespace rdm::soif_tool {

/// read_json reads an array of descriptions, or descriptions one after the other; read_ndjson reads one in each line.
/// Values may also be numbers and truth values, which become texts, and null, which is no attribute. Without
/// "attributes", all members except template and URL are attributes.
void read_json(ByteSource &source, const Conversion &conversion, Taker &taker);
void read_ndjson(ByteSource &source, const Conversion &conversion, Taker &taker);

/// json_writer writes an array with a description in each line, ndjson_writer only the lines.
std::unique_ptr<Writer> json_writer(Output &output, const Conversion &conversion);
std::unique_ptr<Writer> ndjson_writer(Output &output, const Conversion &conversion);

/// json_of returns a description on one line.
std::string json_of(const Description &description, const NameMap &map);

}  // namespace rdm::soif_tool

#endif
