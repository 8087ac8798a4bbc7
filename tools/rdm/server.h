// SPDX-License-Identifier: MIT
/// The server that is asked: exchanges, and patience with failed ones.
#ifndef TOOLS_RDM_SERVER_H
#define TOOLS_RDM_SERVER_H

#include <optional>
#include <random>
#include <string>

#include "tools/rdm/answer.h"
#include "tools/rdm/http.h"
#include "tools/rdm/message.h"
#include "tools/rdm/options.h"

namespace rdm::client {

/// Patience counts failed attempts and says how long to wait before the next one.
class Patience {
 public:
  /// `delay` is the pause before the first retry, in seconds.
  Patience(int retries, double delay);

  /// pause returns the seconds to wait before another attempt: half to all of a time that doubles from one attempt to
  /// the next, up to a minute, and not less than the server's wish. Throws a Distrust with the fault if no attempt is
  /// left, or if the server wishes for more than most_pause seconds.
  double pause(const std::string &fault, std::optional<int64_t> retry_after);
  /// reset is called after progress.
  void reset() { attempts_ = 0; }

  static constexpr double longest_backoff = 60;
  static constexpr int64_t most_pause = 900;

 private:
  int retries_;
  double delay_;
  int attempts_ = 0;
  std::minstd_rand random_;
};

/// Server is one catalog service of a server. The options and the console must outlive it.
class Server {
 public:
  Server(const Options &options, const Console &console);

  const std::string &csid() const { return options_.csid; }
  /// attempt makes one exchange and verifies the answer. Throws as Answer does.
  Answer attempt(const Request &request);
  /// ask attempts until an answer is whole and verified. Throws a Distrust if none is.
  Answer ask(const Request &request);
  /// patience returns a new Patience with the options. retry tells the user about the fault and sleeps, or throws as
  /// Patience::pause does.
  Patience patience() const { return Patience(options_.retries, options_.retry_delay); }
  void retry(Patience &patience, const Answer &answer, const std::string &fault);

  /// longest_delivery returns the seconds that the longest exchange took.
  double longest_delivery() const { return longest_delivery_; }

 private:
  void tell(const std::string &text);

  const Options &options_;
  const Console &console_;
  HttpClient http_;
  double longest_delivery_ = 0;
};

/// url_without_password returns a URL without user and password, for messages and for the names of states.
std::string url_without_password(const std::string &url);

/// scratch_place returns a path in the directory for temporary files, beside which scratch files are made.
std::string scratch_place();

}  // namespace rdm::client

#endif
