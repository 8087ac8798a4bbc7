// SPDX-License-Identifier: MIT
/// What readers and writers of all formats have in common.
#ifndef SOIF_CONVERSION_H
#define SOIF_CONVERSION_H

#include <memory>
#include <string>

#include "tools/soif/byte_source.h"
#include "tools/soif/name_map.h"
#include "tools/soif/options.h"
#include "tools/soif/output.h"
#include "tools/soif/taker.h"

namespace rdm::soif_tool {

struct Conversion {
  NameMap map;
  std::string template_name = "DOCUMENT";  // of descriptions that come without one
  bool oai_identifiers = false;            // oai-dc: the URL is the identifier in the header of a record
};

/// Reader reads an input in one format and passes its records to a taker. The descriptions need not be valid: an
/// attribute may have any name. A reader may throw a Failure that names the input.
using Reader = void (*)(ByteSource &source, const Conversion &conversion, Taker &taker);

/// Writer writes descriptions in one format.
class Writer {
 public:
  virtual ~Writer() = default;
  /// surveys returns true if survey must see all descriptions before the first is written.
  virtual bool surveys() const { return false; }
  virtual void survey(const Description &) {}
  /// write writes a description. Returns the reason if it cannot, otherwise an empty text.
  virtual std::string write(const Description &description) = 0;
  /// end writes what follows the last description.
  virtual void end() {}
  /// remark returns a line for people about what the format does not hold, or an empty text.
  virtual std::string remark() const { return ""; }
};

/// MakeWriter returns a writer to an output, which must outlive it, as must the conversion.
using MakeWriter = std::unique_ptr<Writer> (*)(Output &output, const Conversion &conversion);

/// Format is a format by its name. A null entry cannot be read, or written.
struct Format {
  const char *name;
  Reader read;
  MakeWriter make_writer;
};

/// conversion_of reads the map that the options name. Throws a Failure.
Conversion conversion_of(const Options &options);

/// format_named returns the format of a name that the command line has checked.
const Format &format_named(const std::string &name);

}  // namespace rdm::soif_tool

#endif
