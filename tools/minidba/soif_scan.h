/// A look at an object before it is read.
#ifndef MINIDBA_SOIF_SCAN_H
#define MINIDBA_SOIF_SCAN_H

#include <cstdint>
#include <cstdio>
#include <string>

namespace minidba {

/// fault_of returns what is wrong with the object whose "@" is at `offset` in a file of `size` bytes, nothing when it
/// can be read and is closed. It passes over the values, so that a wrong size costs neither time nor memory, and is
/// stricter than the parser about names: one with blanks or braces is what a wrong size leaves behind. A read error
/// shows in the file; one in seeking is a Failure.
std::string fault_of(FILE *file, int64_t size, int64_t offset);

}  // namespace minidba

#endif
