// SPDX-License-Identifier: MIT
#include <ostream>

#include "qxapi/escaped.h"
#include "tools/soif/conversion.h"
#include "tools/soif/input.h"
#include "tools/soif/soif_reader.h"
#include "tools/soif/writing_taker.h"

namespace rdm::soif_tool {
namespace {

/// Surveyor shows a writer all descriptions. What is rejected is reported when they are written.
class Surveyor : public Taker {
 public:
  explicit Surveyor(Writer &writer) : writer_(writer) {}
  void take(Description &description, const Place &, std::string_view) override { writer_.survey(description); }
  void reject(const Place &, const std::string &, std::string_view) override {}

 private:
  Writer &writer_;
};

void survey(catalog::SoifStream &stream, Writer &writer, const Console &console) {
  tools::Progress progress(console.errors, console.progress, "soif: looking for attributes", stream.size());
  Surveyor surveyor(writer);
  read_soif(stream, surveyor, progress);
  stream.restart();
}

}  // namespace

int to(const Options &options, const Console &console) {
  const Input input(inputs_of(options).front(), options, console);
  const Conversion conversion = conversion_of(options);
  Faults faults(options, console, console.errors);
  Output output(options, console);
  const std::unique_ptr<Writer> writer = format_named(options.format).make_writer(output, conversion);
  catalog::SoifStream stream = open_soif(input, console);
  faults.enter(input.name());
  if (writer->surveys()) survey(stream, *writer, console);
  tools::Progress progress(console.errors, console.progress, "soif: writing", stream.size());
  WritingTaker taker(faults, progress, [&](Description description) {
    if (options.gathers) gather_instances(description);
    return writer->write(description);
  });
  read_soif(stream, taker, progress);
  writer->end();
  output.finish();
  if (const std::string remark = writer->remark(); !remark.empty() && !options.quiet)
    console.errors << "soif: " << escaped(remark) << '\n';
  return faults.finish(taker.written());
}

}  // namespace rdm::soif_tool
