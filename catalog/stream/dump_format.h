// SPDX-License-Identifier: MIT
/// How descriptions travel: as a stream of SOIF objects, with a header in front of them if their sender likes.
///
/// An export is such a stream, which other catalogs can take in as a delivery. It carries what only an import needs in
/// attributes of its own: in the header the next number and how many descriptions follow, in each description its
/// number.
#ifndef CATALOG_STREAM_DUMP_FORMAT_H
#define CATALOG_STREAM_DUMP_FORMAT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "catalog/stream/soif_stream.h"

namespace rdm::catalog {

/// is_header says whether an object is the RDMHEADER in front of a stream.
bool is_header(const SoifStream::Item &item);

/// refusal returns why an object is no description, nothing when it is one.
std::string refusal(const SoifStream::Item &item);

/// ExportHeader is what the header of an export tells; nothing where it does not.
struct ExportHeader {
  std::optional<uint32_t> next_number;
  std::optional<uint32_t> descriptions;
};
std::string print_header(const ExportHeader &header);
ExportHeader read_header(const SOIF *object);

/// with_number returns a record with its number added; number_in the number that a description carries, 0 when it
/// carries none and nothing when what it carries is no number; drop_number takes it out.
std::string with_number(const std::string &record, uint32_t number);
std::optional<uint32_t> number_in(const SOIF *object);
void drop_number(SOIF *object);

}  // namespace rdm::catalog

#endif
