// SPDX-License-Identifier: MIT
#include "tools/rdm/server.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <ostream>
#include <utility>

#include "qxapi/counted.h"
#include "qxapi/escaped.h"
#include "qxapi/temporary_directory.h"
#include "tools/common/progress.h"
#include "tools/rdm/error.h"

namespace rdm::client {
namespace {

std::string without_trailing_slashes(std::string url) {
  while (url.ends_with('/')) url.pop_back();
  return url;
}

HttpSettings settings_of(const Options &options) { return {options.ca_file, options.timeout, "rdm/" RDM_VERSION}; }

std::string in_brackets(const std::string &text) { return text.empty() ? "" : " (" + text + ")"; }

}  // namespace

Patience::Patience(int retries, double delay) : retries_(retries), delay_(delay), random_(std::random_device{}()) {}

double Patience::pause(const std::string &fault, std::optional<int64_t> retry_after) {
  if (attempts_ >= retries_) throw Distrust(fault);
  if (retry_after.value_or(0) > most_pause)
    throw Distrust(fault + ": the server asks to come again in " + counted(*retry_after, "second"));
  const double backoff = std::min(std::ldexp(delay_, std::min(attempts_++, 30)), longest_backoff);
  const double chosen = std::uniform_real_distribution(backoff / 2, std::nextafter(backoff, 1e9))(random_);
  return std::max(chosen, static_cast<double>(retry_after.value_or(0)));
}

Server::Server(const Options &options, const Console &console)
    : options_(options), console_(console), http_(settings_of(options)) {}

void Server::tell(const std::string &text) { console_.errors << "rdm: " << escaped(text) << std::endl; }

Answer Server::attempt(const Request &request) {
  catalog::ScratchFile body(scratch_place());
  tools::Progress progress(console_.errors, console_.progress, "rdm: receiving");
  const double start = tools::Progress::steady_seconds();
  const std::string url = without_trailing_slashes(options_.url) + "/" + request.type;
  HttpReply reply = http_.post(url, message_of(request), [&](std::string_view bytes) {
    body.append(bytes);
    progress.advance(0, static_cast<int64_t>(bytes.size()));
  });
  progress.clear();
  longest_delivery_ = std::max(longest_delivery_, tools::Progress::steady_seconds() - start);
  if (options_.verbose)
    tell(description_of(request) + ": status " + std::to_string(reply.status) + ", " + counted(reply.received, "byte") +
         in_brackets(reply.error));
  return Answer(request, std::move(reply), std::move(body));
}

Answer Server::ask(const Request &request) {
  for (Patience patience = this->patience();;) {
    Answer answer = attempt(request);
    if (answer.fault().empty()) return answer;
    retry(patience, answer, answer.fault());
  }
}

void Server::retry(Patience &patience, const Answer &answer, const std::string &fault) {
  const double seconds = patience.pause(fault, answer.reply().retry_after);
  if (!options_.quiet) tell(fault + ": trying again in " + std::to_string(std::lround(seconds)) + " s");
  console_.sleep(seconds);
}

std::string url_without_password(const std::string &url) {
  const std::string::size_type scheme = url.find("://");
  if (scheme == std::string::npos) return url;
  const std::string::size_type host = scheme + 3;
  const std::string::size_type at = url.substr(0, url.find('/', host)).rfind('@');
  return without_trailing_slashes(at == std::string::npos ? url : url.substr(0, host) + url.substr(at + 1));
}

std::string scratch_place() {
  const char *directory = temporary_directory(&::stat);
  if (directory == nullptr) throw Failure("no directory for temporary files");
  return std::string(directory) + "/rdm";
}

}  // namespace rdm::client
