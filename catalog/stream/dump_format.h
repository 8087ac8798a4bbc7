// SPDX-License-Identifier: MIT
/// The form of an export: a stream of SOIF objects.
///
/// Descriptions are exchanged as streams of SOIF objects. An RDMHEADER may be the first object. An export is such a
/// stream, so that other catalogs can import it as a submission. It has additional attributes: in the header the next
/// number (minidba-next-number) and the number of descriptions (minidba-descriptions), in each description its number
/// (minidba-number).
#ifndef CATALOG_STREAM_DUMP_FORMAT_H
#define CATALOG_STREAM_DUMP_FORMAT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "catalog/stream/soif_stream.h"

namespace rdm::catalog {

/// is_header returns true if an object is the RDMHEADER at the start of a stream.
bool is_header(const SoifStream::Item &item);

/// refusal returns the reason why an object is not a description: it is malformed or has no URL. Empty if it is one.
std::string refusal(const SoifStream::Item &item);

/// ExportHeader holds the additional attributes of an RDMHEADER: std::nullopt for a missing or malformed one.
struct ExportHeader {
  std::optional<uint32_t> next_number;   // 0 if all numbers are used
  std::optional<uint32_t> descriptions;  // that follow
};
/// print_header returns the header as text, with the empty lines after it. read_header reads one from its object.
std::string print_header(const ExportHeader &header);
ExportHeader read_header(const ObjectView &object);

/// with_number returns a record with the attribute of its number added. number_in returns the number in a description:
/// 0 if it has no such attribute, std::nullopt if the value is not a decimal number from 1 to 2^32-1. drop_number
/// deletes the attribute.
std::string with_number(const std::string &record, uint32_t number);
std::optional<uint32_t> number_in(const ObjectView &object);
void drop_number(ObjectView &object);

}  // namespace rdm::catalog

#endif
