// SPDX-License-Identifier: MIT
/// A server that answers as a test says, byte for byte, and runs of the client against it.
#ifndef TESTS_TOOLS_RDM_SCRIPTED_SERVER_H
#define TESTS_TOOLS_RDM_SCRIPTED_SERVER_H

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/files.h"
#include "tools/rdm/options.h"
#include "tools/rdm/verbs/verbs.h"

namespace rdm::client {

/// ScriptedServer listens on the loopback interface and serves one connection at a time, one request on each.
class ScriptedServer {
 public:
  /// Script returns what is sent, head included, for a message. An empty answer closes the connection.
  using Script = std::function<std::string(const std::string &message)>;
  /// With `stays_open`, the server does not end the connection after its answer.
  explicit ScriptedServer(Script script, bool stays_open = false);
  ScriptedServer(const ScriptedServer &) = delete;
  ScriptedServer &operator=(const ScriptedServer &) = delete;
  ~ScriptedServer();

  std::string url() const;
  int port() const { return port_; }
  /// messages returns the messages received so far, heads what came before them. Call them when no client is at work.
  const std::vector<std::string> &messages() const { return messages_; }
  const std::vector<std::string> &heads() const { return heads_; }

 private:
  void serve();
  void answer(int client);

  Script script_;
  bool stays_open_;
  int port_ = 0;  // set by the next member
  int listener_;
  std::vector<std::string> messages_, heads_;
  std::atomic<bool> is_ending_ = false;
  std::thread thread_;
};

/// attribute returns one attribute in SOIF.
std::string attribute(const std::string &name, const std::string &value);
/// header returns the header of an answer of this type, with an error message unless that is empty.
std::string header(const std::string &type, const std::string &error = "");
/// http returns an answer with its head; `fields` are added to the head.
std::string http(const std::string &body, const std::string &fields = "", const std::string &status = "200 OK");

constexpr time_t day = 86400;

/// Description is a description of a catalog in a test.
struct Description {
  std::string url;
  time_t time;
  std::string title = "title of " + url;
  time_t indexed = 0;  // the time in the index, unless it is that of the text
};
/// text_of returns a description as minidba stores it, with all attributes or only the time.
std::string text_of(const Description &description, bool only_time = false);

/// CatalogScript answers rd-requests as servers do: sorted by time, with their odd ends of since queries.
class CatalogScript {
 public:
  explicit CatalogScript(std::vector<Description> all) : descriptions(std::move(all)) {}
  std::string operator()(const std::string &message) const;

  std::vector<Description> descriptions;  // in the order of the index
};

/// Ran is the result of a verb.
struct Ran {
  int status;
  std::string out, errors;
  std::vector<double> pauses;  // before further attempts
};
/// options_for returns options for this server, with pauses of length 0. run runs a verb; a Failure is reported as the
/// program does, with exit status 2.
Options options_for(const ScriptedServer &server);
Ran run_verb(Verb verb, const Options &options);

}  // namespace rdm::client

#endif
