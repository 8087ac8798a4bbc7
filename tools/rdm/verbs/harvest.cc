// SPDX-License-Identifier: MIT
#include "tools/rdm/harvest.h"

#include <filesystem>
#include <optional>
#include <ostream>
#include <sstream>

#include "qxapi/counted.h"
#include "qxapi/escaped.h"
#include "tools/common/time_text.h"
#include "tools/rdm/error.h"
#include "tools/rdm/harvest_output.h"
#include "tools/rdm/verbs/verbs.h"

namespace rdm::client {
namespace {

/// state_of returns the state of a harvest since the last one. Harvests of other attributes have their own.
State state_of(const Options &options) {
  std::string work = "harvest";
  for (const std::string &name : options.attributes) work += "," + name;
  return State(options, work);
}

/// Figures count what was written. `bytes` are those of the SOIF texts.
struct Figures {
  int64_t descriptions = 0, bytes = 0, rejected = 0;
};

Figures write(const Harvest &harvest, HarvestOutput &output, const Console &console) {
  Figures figures;
  if (output.surveys()) harvest.each([&](const std::string &text) { output.survey(text); });
  harvest.each([&](const std::string &text) {
    if (const std::string reason = output.write(text); !reason.empty()) {
      console.errors << "rdm: rejected: " << escaped(reason) << '\n';
      ++figures.rejected;
      return;
    }
    ++figures.descriptions;
    figures.bytes += static_cast<int64_t>(text.size());
  });
  output.finish();
  return figures;
}

void report(const Options &options, const Console &console, const Figures &figures) {
  const auto [count, bytes, rejected] = figures;
  if (options.json)
    console.out << R"({"verb":"harvest","descriptions":)" << count << R"(,"bytes":)" << bytes << R"(,"rejected":)"
                << rejected << "}\n";
  else if (!options.quiet)
    console.errors << "rdm: " << counted(count, "description") << ", " << counted(bytes, "byte") << '\n';
}

void take(const Options &options, const Console &console, Harvest &harvest, State *state) {
  if (state != nullptr)
    harvest.take_news(*state);
  else if (!options.since.empty())
    harvest.take_since(tools::read_time(options.since, console.clock()));
  else
    harvest.take_all();
}

/// size_of_nothing returns the size of a file of this format without descriptions.
size_t size_of_nothing(const Options &options) {
  Options to_console = options;
  to_console.output.clear();
  std::ostringstream text;
  HarvestOutput(to_console, {text, text, false}).finish();
  return text.str().size();
}

bool holds_descriptions(const Options &options) {
  std::error_code error;
  return std::filesystem::is_regular_file(options.output, error) &&
         std::filesystem::file_size(options.output, error) > size_of_nothing(options);
}

/// require_plausible throws a Distrust if nothing would replace an earlier harvest of the whole catalog. A server whose
/// database is damaged answers as one whose catalog is empty. Since a time, nothing is a usual answer.
void require_plausible(const Options &options, const Harvest &harvest) {
  if (options.believe || !options.since.empty() || options.output.empty()) return;
  if (harvest.is_empty() && holds_descriptions(options))
    throw Distrust("the server has no descriptions: " + options.output +
                   " is left as it was; if they are gone indeed, say --believe");
}

}  // namespace

int harvest(const Options &options, const Console &console) {
  Server server(options, console);
  std::optional<State> state;
  if (options.since == "last") state.emplace(state_of(options));
  HarvestOutput output(options, console);
  Harvest harvest(options, server);
  take(options, console, harvest, state ? &*state : nullptr);
  require_plausible(options, harvest);
  const Figures figures = write(harvest, output, console);
  if (state) state->save();
  report(options, console, figures);
  return figures.rejected == 0 ? exit_done : exit_partly;
}

}  // namespace rdm::client
