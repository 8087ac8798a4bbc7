// SPDX-License-Identifier: MIT
#include "service/support/question.h"

#include <algorithm>
#include <ctime>
#include <utility>
#include <vector>

#include <libcs/cs.h>

#include "service/message.h"
#include "service/rds/file_state.h"
#include "service/support/catalog.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

namespace rdm::support {
namespace {

std::string content_of(csio *buffer) {
  std::string bytes(buffer->length, '\0');
  csio_rewind(buffer);
  csio_copy(buffer, bytes.data(), static_cast<int32_t>(bytes.size()));
  return bytes;
}

std::string message_of(const std::string &line) {
  const size_t start = line.find('"');
  return start == std::string::npos ? line : line.substr(start);
}

/// Asking is one exchange under way.
struct Asking {
  Exchange x{"POST", "/rdm/rd-request"};
  CsioPtr response = make_csio();
  RdmHeaderPtr header = make_rdmhdr(RDM_RD_REQUEST);
  Diagnostics diagnostics;

  Asking() {
    host_record().sent.clear();
    header->query_language = host_strdup("gatherer");
    header->csid = host_strdup("c");
  }

  Reply reply(int32_t result) {
    return {result,
            result == 0 ? content_of(response.get()) : host_record().sent,
            x.response("content-type"),
            x.response("content-length"),
            x.var("rdm-hits"),
            message_of(x.var("rdm-log-message")),
            diagnostics.text()};
  }
};

/// Names is a list of names as send_since takes it.
struct Names {
  explicit Names(std::string list) : text(std::move(list)) {
    for (char *name = text.data(); !text.empty() && name != nullptr;) {
      pointers.push_back(name);
      char *const comma = std::find(name, text.data() + text.size(), ',');
      name = *comma == ',' ? comma + 1 : nullptr;
      *comma = '\0';
    }
    pointers.push_back(nullptr);
  }
  std::string text;
  std::vector<char *> pointers;
};

time_t since_of(const std::string &scope) {
  time_t since = 0;
  if (scope.starts_with("since")) cs_str2time(scope.c_str() + 6, &since);
  return std::max<time_t>(since, 0);
}

int64_t in_an_hour() noexcept {
  timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);
  return (int64_t{now.tv_sec} + 3600) * 1'000'000'000;
}

}  // namespace

std::ostream &operator<<(std::ostream &out, const Reply &reply) {
  return out << reply.result << ", length " << reply.length << ", type " << reply.type << ", hits " << reply.hits
             << ", log " << reply.log << "diagnostics:\n"
             << reply.diagnostics << "bytes:\n"
             << reply.bytes.substr(0, 2000);
}

Reply handled(const Question &question) {
  Asking asking;
  std::vector<std::pair<std::string, std::string>> query{{"scope", question.scope}};
  if (!question.hits.empty()) query.emplace_back("view-hits", question.hits);
  if (!question.names.empty()) query.emplace_back("view-attributes", question.names);
  const CsioPtr body = make_csio();
  append_text(body.get(), soif("RDMQUERY", "-", query));
  return asking.reply(
      rds_rd_request(asking.header.get(), body.get(), asking.response.get(), &asking.x.session, &asking.x.request));
}

Reply step_by_step(const Question &question) {
  Asking asking;
  Names names(question.names);
  const time_t since = since_of(question.scope);
  int32_t count = question.hits.empty() ? 0 : std::stoi(question.hits);
  uint32_t bytes = 0;
  cs_dbindex index{};
  const int32_t result = cs_dbsearch_start("c", &index) == 0 ? 1 : 0;
  if (result == 1) {
    send_since("c", &index, since, names.pointers.data(), &count, &bytes, &asking.x.session, &asking.x.request);
    rdm_set_variable(rdm_hits_variable, std::to_string(count).c_str(), &asking.x.request);
  } else {
    rdm_answer(asking.header.get(), RDM_STATUS_RESPONSE, "Server Error: Cannot service request");
    rdmhdr_print(asking.header.get(), asking.response.get());
  }
  host_free(index.entries);
  cs_dbsearch_log(count, bytes, since, &asking.x.session, &asking.x.request);
  return asking.reply(result);
}

Hour::Hour() : before_(file_clock) { file_clock = in_an_hour; }
Hour::~Hour() { file_clock = before_; }

}  // namespace rdm::support
