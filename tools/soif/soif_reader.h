// SPDX-License-Identifier: MIT
/// Reading the objects of a SOIF stream.
#ifndef SOIF_SOIF_READER_H
#define SOIF_SOIF_READER_H

#include "catalog/stream/soif_stream.h"
#include "tools/common/progress.h"
#include "tools/soif/taker.h"

namespace rdm::soif_tool {

/// Mending says what becomes of an object with wrong byte counts that mend can read: `none` rejects it, `report`
/// rejects it once for each correction, `apply` takes what mend makes of it. For the last two a count is also wrong if
/// the parser takes it, but a value then ends within the next attribute, or text follows the object.
enum class Mending { none, report, apply };

/// read_soif passes on the objects of a stream, and rejects everything else that is not white space.
void read_soif(catalog::SoifStream &stream, Taker &taker, tools::Progress &progress, Mending mending = Mending::none);

}  // namespace rdm::soif_tool

#endif
