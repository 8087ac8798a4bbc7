// SPDX-License-Identifier: MIT
#include "tools/rdm/harvest_output.h"

#include "tools/rdm/error.h"

namespace rdm::client {
namespace {

/// output_options returns the options of the program soif that name the output of a harvest.
soif_tool::Options output_options(const Options &options) {
  soif_tool::Options output;
  output.output = options.output;
  return output;
}

soif_tool::Description description_in(const std::string &text) {
  const auto object = catalog::ObjectView::read(text);
  if (!object) throw Failure("the scratch file of the descriptions has changed");
  soif_tool::Description description = soif_tool::description_of(*object);
  soif_tool::gather_instances(description);
  return description;
}

}  // namespace

HarvestOutput::HarvestOutput(const Options &options, const Console &console)
    : options_(output_options(options)),
      console_{-1, console.out, console.errors, console.progress},
      output_(options_, console_) {
  if (options.format != "soif") writer_ = soif_tool::format_named(options.format).make_writer(output_, conversion_);
}

void HarvestOutput::survey(const std::string &text) { writer_->survey(description_in(text)); }

std::string HarvestOutput::write(const std::string &text) {
  if (writer_) return writer_->write(description_in(text));
  output_.write(text);
  return "";
}

void HarvestOutput::finish() {
  if (writer_) writer_->end();
  output_.finish();
}

}  // namespace rdm::client
