// SPDX-License-Identifier: MIT
#include "tools/rdm/scripted_server.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "catalog/record.h"
#include "tools/rdm/chaos_proxy.h"
#include "tools/rdm/error.h"
#include "tools/rdm/run.h"

namespace rdm::client {
namespace {

/// length_in returns the announced length of a request's body.
size_t length_in(const std::string &head) {
  const size_t at = head.find("Content-Length: ");
  return at == std::string::npos ? 0 : std::stoul(head.substr(at + 16));
}

/// value_in returns the value of an attribute of a message, or an empty text.
std::string value_in(const std::string &message, const std::string &name) {
  const size_t at = message.find("\n" + name + "{");
  if (at == std::string::npos) return "";
  const size_t start = message.find('\t', at) + 1;
  return message.substr(start, message.find('\n', start) - start);
}

}  // namespace

ScriptedServer::ScriptedServer(Script script, bool stays_open)
    : script_(std::move(script)),
      stays_open_(stays_open),
      listener_(listen_on_loopback(port_)),
      thread_([this] { serve(); }) {}

ScriptedServer::~ScriptedServer() {
  is_ending_ = true;
  ::shutdown(listener_, SHUT_RDWR);
  thread_.join();
  ::close(listener_);
}

std::string ScriptedServer::url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/rdm"; }

void ScriptedServer::serve() {
  while (!is_ending_) {
    const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) continue;
    answer(client);
    ::close(client);
  }
}

void ScriptedServer::answer(int client) {
  std::string request;
  char block[4096];
  size_t head = std::string::npos;
  while (head == std::string::npos || request.size() < head + 4 + length_in(request)) {
    const ssize_t got = ::recv(client, block, sizeof block, 0);
    if (got <= 0) return;
    request.append(block, static_cast<size_t>(got));
    head = request.find("\r\n\r\n");
  }
  heads_.push_back(request.substr(0, head + 2));
  messages_.push_back(request.substr(head + 4));
  std::string bytes = script_(messages_.back());
  while (!bytes.empty()) {
    const ssize_t sent = ::send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;
    bytes.erase(0, static_cast<size_t>(sent));
  }
  // The client has read all before it sees the end: a close with unread input would reset the connection.
  if (!stays_open_) ::shutdown(client, SHUT_WR);
  while (::recv(client, block, sizeof block, 0) > 0) continue;
}

std::string attribute(const std::string &name, const std::string &value) {
  return name + "{" + std::to_string(value.size()) + "}:\t" + value + "\n";
}

std::string header(const std::string &type, const std::string &error) {
  return "@RDMHEADER { -\n" + attribute("rdm-version", "1.0") + attribute("rdm-type", type) +
         (error.empty() ? "" : attribute("rdm-error-message", error)) + "}\n\n\n";
}

std::string http(const std::string &body, const std::string &fields, const std::string &status) {
  return "HTTP/1.1 " + status +
         "\r\nContent-Type: application/x-rdm\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n" + fields + "\r\n" + body;
}

std::string text_of(const Description &description, bool only_time) {
  return "@FILE { " + description.url + "\n" + attribute("rd-last-changed", catalog::date_of(description.time)) +
         (only_time ? "" : attribute("title", description.title)) + "}\n";
}

std::string CatalogScript::operator()(const std::string &message) const {
  const std::string scope = value_in(message, "scope"), hits = value_in(message, "view-hits");
  const bool only_time = value_in(message, "view-attributes") == "rd-last-changed";
  time_t since = 0;
  if (scope != "all") cs_str2time(scope.substr(6).c_str(), &since);
  const auto is_due = [&](const Description &one) { return (one.indexed != 0 ? one.indexed : one.time) >= since; };
  auto at = std::find_if(descriptions.begin(), descriptions.end(), is_due);
  if (since != 0 && descriptions.end() - at < 2) at = descriptions.end();
  std::string text;
  for (size_t count = 0; at != descriptions.end() && (hits.empty() || count < std::stoul(hits)); ++at, ++count)
    text += text_of(*at, only_time);
  return http(header("rd-response", text.empty() ? "0 results." : "") + text);
}

Options options_for(const ScriptedServer &server) {
  Options options;
  options.url = server.url();
  options.retry_delay = 0;
  options.timeout = 100;
  return options;
}

Ran run_verb(Verb verb, const Options &options) {
  std::ostringstream out, errors;
  Ran ran{};
  Console console{out, errors, false};
  console.sleep = [&](double seconds) { ran.pauses.push_back(seconds); };
  try {
    ran.status = run(verb, options, console);
  } catch (const Failure &failure) {
    errors << "rdm: " << failure.what() << '\n';
    ran.status = 2;
  }
  ran.out = out.str();
  ran.errors = errors.str();
  return ran;
}

}  // namespace rdm::client
