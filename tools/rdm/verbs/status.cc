// SPDX-License-Identifier: MIT
#include <ostream>

#include <nlohmann/json.hpp>

#include "qxapi/ascii.h"
#include "qxapi/escaped.h"
#include "tools/rdm/server.h"
#include "tools/rdm/verbs/verbs.h"

namespace rdm::client {
namespace {

/// words_of returns the text after the header, without the white space around it. Servers send a line.
std::string words_of(const Answer &answer) {
  constexpr int64_t longest = 4096;
  std::string text = answer.text(answer.body_start(), longest);
  while (!text.empty() && ascii::is_space(text.back())) text.pop_back();
  size_t start = 0;
  while (start < text.size() && ascii::is_space(text[start])) ++start;
  return text.substr(start);
}

}  // namespace

int status(const Options &options, const Console &console) {
  Server server(options, console);
  const std::string words = words_of(server.ask({"status-request", options.csid}));
  if (options.json) {
    const nlohmann::ordered_json object{
        {"verb", "status"}, {"url", url_without_password(options.url)}, {"status", words}};
    console.out << object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
  } else {
    console.out << escaped(words) << '\n';
  }
  return exit_done;
}

}  // namespace rdm::client
