// SPDX-License-Identifier: MIT
#include "tools/soif/input.h"
#include "tools/soif/output.h"
#include "tools/soif/soif_reader.h"
#include "tools/soif/writing_taker.h"

namespace rdm::soif_tool {

int format(const Options &options, const Console &console) {
  const Input input(inputs_of(options).front(), options, console);
  Faults faults(options, console, console.errors);
  Output output(options, console);
  catalog::SoifStream stream = open_soif(input, console);
  faults.enter(input.name());
  tools::Progress progress(console.errors, console.progress, "soif: formatting", stream.size());
  WritingTaker taker(faults, progress, [&](const Description &description) {
    output.write(soif_of(description));
    return std::string();
  });
  read_soif(stream, taker, progress, Mending::apply);
  output.finish();
  return faults.finish(taker.written());
}

}  // namespace rdm::soif_tool
