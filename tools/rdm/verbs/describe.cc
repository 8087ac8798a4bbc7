// SPDX-License-Identifier: MIT
#include <algorithm>
#include <ostream>

#include <nlohmann/json.hpp>

#include "qxapi/ascii.h"
#include "tools/rdm/server.h"
#include "tools/rdm/verbs/verbs.h"

namespace rdm::client {
namespace {

/// start_of returns the offset of the first object after the header, or the end of the answer.
int64_t start_of(const Answer &answer) {
  int64_t offset = answer.body_start();
  while (offset < answer.size() && ascii::is_space(answer.text(offset, 1)[0])) ++offset;
  return offset;
}

void print_json(const Options &options, const Answer &answer, std::ostream &out) {
  const int64_t start = start_of(answer);
  const nlohmann::ordered_json object{{"verb", "describe"},
                                      {"what", options.what},
                                      {"objects", answer.objects()},
                                      {"soif", answer.text(start, answer.size() - start)}};
  out << object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

}  // namespace

int describe(const Options &options, const Console &console) {
  constexpr int64_t block = 1 << 16;
  Server server(options, console);
  const Answer answer = server.ask({options.what + "-description-request", options.csid});
  if (options.json) {
    print_json(options, answer, console.out);
    return exit_done;
  }
  for (int64_t offset = start_of(answer); offset < answer.size(); offset += block)
    console.out << answer.text(offset, block);
  return exit_done;
}

}  // namespace rdm::client
