// SPDX-License-Identifier: MIT
/// The interface between readers and what is done with their descriptions.
#ifndef SOIF_TAKER_H
#define SOIF_TAKER_H

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/soif/description.h"

namespace rdm::soif_tool {

/// Place is a place in an input. Lines and columns count from 1; a column is a byte, 0 if it is not known.
struct Place {
  int64_t line = 1;
  int64_t column = 0;
};

/// Taker receives what a reader finds in an input, in its order.
class Taker {
 public:
  virtual ~Taker() = default;
  /// begin receives what stands before the first record and is needed to read the records alone; at most one call,
  /// before all others. end receives what must follow the last, after all others.
  virtual void begin(std::string_view) {}
  virtual void end(std::string_view) {}
  /// take receives a description and the bytes that it was read from, valid during the call.
  virtual void take(Description &description, const Place &place, std::string_view bytes) = 0;
  /// remove receives the identifier of a description that the input says is deleted.
  virtual void remove(const std::string &, const Place &) {}
  /// note receives a line for people that is about no record.
  virtual void note(const Place &, const std::string &) {}
  /// reject receives a part of the input that is no description.
  virtual void reject(const Place &place, const std::string &reason, std::string_view bytes) = 0;
};

}  // namespace rdm::soif_tool

#endif
