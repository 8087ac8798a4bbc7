// SPDX-License-Identifier: MIT
#include <algorithm>
#include <map>
#include <ostream>

#include <nlohmann/json.hpp>

#include "qxapi/escaped.h"
#include "tools/rdm/delivery.h"
#include "tools/rdm/listing.h"
#include "tools/rdm/verbs/verbs.h"

namespace rdm::client {
namespace {

/// positions_of returns the positions of URLs in a listing, ascending. Of a URL that is listed twice, the last counts.
std::vector<size_t> positions_of(const std::vector<std::string> &urls, const Listing &listing) {
  std::map<Digest, size_t> wanted;
  for (const std::string &url : urls) wanted[digest_of(url)] = listing.entries.size();
  for (size_t i = 0; i < listing.entries.size(); ++i)
    if (const auto found = wanted.find(listing.entries[i].key); found != wanted.end()) found->second = i;
  std::vector<size_t> positions;
  for (const auto &[key, position] : wanted)
    if (position < listing.entries.size()) positions.push_back(position);
  std::sort(positions.begin(), positions.end());
  return positions;
}

/// Result collects what was found, as text or as JSON.
class Result {
 public:
  Result(const Options &options, const Console &console) : options_(options), console_(console) {}

  void add(const std::string &url, const std::string &text) {
    if (options_.json)
      found_.push_back({{"url", url}, {"soif", text}});
    else
      console_.out << text << '\n';
  }
  void miss(const std::string &url) {
    missing_.push_back(url);
    console_.errors << "rdm: no such description: " << escaped(url) << '\n';
  }
  int finish() {
    const nlohmann::ordered_json object{{"verb", "get"}, {"found", found_}, {"missing", missing_}};
    if (options_.json) console_.out << object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    return missing_.empty() ? exit_done : exit_partly;
  }

 private:
  const Options &options_;
  const Console &console_;
  nlohmann::ordered_json found_ = nlohmann::ordered_json::array(), missing_ = nlohmann::ordered_json::array();
};

}  // namespace

int get(const Options &options, const Console &console) {
  Server server(options, console);
  const Listing listing = list_all(server);
  Received received(scratch_place());
  receive_listed(server, listing, {positions_of(options.urls, listing), {}, true}, received);
  Result result(options, console);
  for (const std::string &url : options.urls) {
    const Received::Entry *entry = received.find(digest_of(url));
    if (entry != nullptr)
      result.add(url, received.text(*entry));
    else
      result.miss(url);
  }
  return result.finish();
}

}  // namespace rdm::client
