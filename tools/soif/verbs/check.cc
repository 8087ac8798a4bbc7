// SPDX-License-Identifier: MIT
#include "tools/soif/faults.h"
#include "tools/soif/input.h"
#include "tools/soif/soif_reader.h"

namespace rdm::soif_tool {
namespace {

class Checker : public Taker {
 public:
  Checker(Faults &faults, tools::Progress &progress, int64_t &sound)
      : faults_(faults), progress_(progress), sound_(sound) {}
  void take(Description &, const Place &, std::string_view) override { ++sound_; }
  void reject(const Place &place, const std::string &reason, std::string_view) override {
    faults_.add(place, reason, progress_);
  }

 private:
  Faults &faults_;
  tools::Progress &progress_;
  int64_t &sound_;
};

}  // namespace

int check(const Options &options, const Console &console) {
  Faults faults(options, console, console.out);
  int64_t sound = 0;
  for (const std::string &name : inputs_of(options)) {
    const Input input(name, options, console);
    catalog::SoifStream stream = open_soif(input, console);
    faults.enter(input.name());
    tools::Progress progress(console.errors, console.progress, "soif: checking", stream.size());
    Checker checker(faults, progress, sound);
    read_soif(stream, checker, progress, Mending::report);
  }
  return faults.finish(sound, {"fault", "faults", "sound"});
}

}  // namespace rdm::soif_tool
