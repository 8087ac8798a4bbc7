// SPDX-License-Identifier: MIT
/// The messages that the client sends.
#ifndef TOOLS_RDM_MESSAGE_H
#define TOOLS_RDM_MESSAGE_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace rdm::client {

/// Query selects descriptions.
struct Query {
  time_t since = 0;                     // in seconds since 1970; 0 for all
  std::vector<std::string> attributes;  // empty for all
  int64_t hits = 0;                     // at most so many; 0 for all
};

/// Request is a message: its type, the catalog service, which may be empty, and the query of an rd-request.
struct Request {
  std::string type;
  std::string csid;
  std::optional<Query> query = {};
};

/// message_of returns the text of a message. Throws a Failure if its header would be longer than servers read.
std::string message_of(const Request &request);

/// answer_type returns the type that an answer to this type of request has: "rd-response" for "rd-request".
std::string answer_type(const std::string &type);

/// description_of says for people what is asked for: "rd-request since Thu, 01 Jan 2015 00:00:00 GMT".
std::string description_of(const Request &request);

}  // namespace rdm::client

#endif
