// SPDX-License-Identifier: MIT
/// The output of a harvest: SOIF as the server sent it, or another format, written as the program soif writes it.
#ifndef TOOLS_RDM_HARVEST_OUTPUT_H
#define TOOLS_RDM_HARVEST_OUTPUT_H

#include <memory>
#include <string>

#include "tools/rdm/options.h"
#include "tools/soif/conversion.h"

namespace rdm::client {

/// HarvestOutput writes to a file, which is replaced when all is written, or to standard output.
class HarvestOutput {
 public:
  /// HarvestOutput throws a Failure if the file cannot be created. The console must outlive it.
  HarvestOutput(const Options &options, const Console &console);
  HarvestOutput(const HarvestOutput &) = delete;
  HarvestOutput &operator=(const HarvestOutput &) = delete;

  /// surveys returns true if survey must be called with every description before the first is written.
  bool surveys() const { return writer_ && writer_->surveys(); }
  void survey(const std::string &text);
  /// write writes a description, given as SOIF text. Returns the reason if it cannot, otherwise an empty text.
  std::string write(const std::string &text);
  /// finish writes what follows the last description, and puts a new file into its place.
  void finish();

 private:
  soif_tool::Options options_;
  soif_tool::Console console_;
  soif_tool::Conversion conversion_;
  soif_tool::Output output_;
  std::unique_ptr<soif_tool::Writer> writer_;  // null for SOIF
};

}  // namespace rdm::client

#endif
