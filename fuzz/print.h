/// SOIF objects as text, for fuzzers that compare them.
#ifndef FUZZ_PRINT_H
#define FUZZ_PRINT_H

#include <string>

#include "libcs/guard.h"

namespace fuzz {

inline std::string print(const SOIF *object) {
  std::string text;
  const soif_output_fn append = [](void *to, const void *bytes, int32_t length) {
    static_cast<std::string *>(to)->append(static_cast<const char *>(bytes), static_cast<size_t>(length));
    return 0;
  };
  soif_writer(append, &text).print(object);
  return text;
}

}  // namespace fuzz

#endif
