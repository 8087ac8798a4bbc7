// SPDX-License-Identifier: MIT
/// What the fuzzers of the converters assert.
#ifndef FUZZ_SOIF_FORMATS_H
#define FUZZ_SOIF_FORMATS_H

#include <string_view>

namespace rdm::fuzz {

/// check_format reads bytes in a format. Each description that SOIF can hold must be the same again when it was written
/// as SOIF and read by the parser, and the same when all were written in the format and read again. Without
/// `is_lossless`, writing and reading a second time must change nothing more.
void check_format(const char *format, std::string_view bytes, bool is_lossless);

/// check_read reads bytes in a format that cannot be written, and checks the first of these.
void check_read(const char *format, std::string_view bytes);

}  // namespace rdm::fuzz

#endif
