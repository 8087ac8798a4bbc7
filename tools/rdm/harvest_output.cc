// SPDX-License-Identifier: MIT
#include "tools/rdm/harvest_output.h"

#include "tools/rdm/error.h"

namespace rdm::client {
namespace {

soif_tool::Options options_of(const Options &options) {
  soif_tool::Options same;
  same.output = options.output;
  return same;
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
    : options_(options_of(options)),
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
