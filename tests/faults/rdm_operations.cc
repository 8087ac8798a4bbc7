// SPDX-License-Identifier: MIT
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/log.h>

#include "faults/operations.h"
#include "service/csid.h"
#include "service/message.h"
#include "service/schema.h"
#include "service/support/catalog.h"
#include "support/diagnostics.h"
#include "support/environment.h"
#include "support/files.h"
#include "support/memory_host.h"

namespace rdm::faults {
namespace {

using support::soif;

constexpr uint32_t catalog_size = 5;

std::string record_of(uint32_t number) {
  return soif("FILE", "http://localhost/" + std::to_string(number), {{"title", std::to_string(number)}});
}

std::string header_text(const std::string &type) {
  return soif(
      "RDMHEADER", "-",
      {{"rdm-version", "1.0"}, {"rdm-type", type}, {"rdm-query-language", "gatherer"}, {"catalog-service-id", "c"}});
}

const std::string query_text = soif("RDMQUERY", "-", {{"scope", "all"}, {"view-attributes", "title"}});
const std::string request_text = header_text("rd-request") + "\n" + query_text;

/// Files holds a small catalog and the configuration of a service, shared by all scenarios, which only read them.
struct Files {
  support::TemporaryDirectory directory;
  support::Catalog catalog{directory};
  std::string description = directory.write("description", header_text("server-response"));
  std::string services = "csid=\"c\" catalog-database=\"" + catalog.path() + "\" server-description=\"" + description +
                         "\" schema-description=\"" + description + "\" taxonomy-description=\"" + description + "\"\n";
  std::string path = directory.write("csid.conf", services);

  Files() {
    std::vector<std::pair<uint32_t, uint32_t>> entries;
    for (uint32_t number = 1; number <= catalog_size; ++number) {
      catalog.put(number, record_of(number));
      entries.emplace_back(number, number);
    }
    catalog.index(entries);
  }
};

const Files &files() {
  static const Files all;
  return all;
}

/// Service is a configured service with one request.
struct Service {
  support::Exchange x{"POST", "/rdm/rd-request", request_text};
  RdmHeaderPtr header = make_rdmhdr(RDM_RD_REQUEST);
  CsioPtr body = make_csio(), response = make_csio();
  Session *sn = &x.session;
  Request *rq = &x.request;

  Service() {
    support::host_record() = support::HostRecord{};
    csid_init(files().path.c_str(), "c");
    for (pblock *block : {rq->response, rq->vars}) fill_room(block);
    x.header("content-length", std::to_string(request_text.size()));
    header->query_language = host_strdup("gatherer");
    header->csid = host_strdup("c");
    csio_append(body.get(), query_text.data(), static_cast<int32_t>(query_text.size()));
  }
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  ~Service() { csid_terminate(); }
};

/// Answer holds everything that a client or caller sees of an operation.
struct Answer {
  int result;
  std::string bytes;
  std::string announced;  // the content length

  bool operator==(const Answer &) const = default;
};

/// sent returns the answer of an operation that sends it itself.
Answer sent(int result, const Service &service) {
  return {result, support::host_record().sent, service.x.response("content-length")};
}

/// announces_itself returns true if an answer declares its own length, or none.
bool announces_itself(const Answer &answer) {
  return answer.announced.empty() || answer.announced == std::to_string(answer.bytes.size());
}

/// is_incomplete returns true if an answer is the right one with bytes missing, or without its right length.
bool is_incomplete(const Answer &answer, const Answer &right) {
  return (answer.bytes == right.bytes || lacks_a_part(answer.bytes, right.bytes)) &&
         (answer.announced == right.announced || announces_itself(answer));
}

/// is_refusal returns true if an answer is a complete error message: a request or a file that lost a part for lack of
/// memory looks as if it had arrived without it.
bool is_refusal(const Answer &answer) {
  const std::string &text = answer.bytes;
  const auto says = [&](const std::string &error) {
    return text.find("\nrdm-error-message{" + std::to_string(error.size()) + "}:\t" + error + "\n}\n") !=
           std::string::npos;
  };
  return text.starts_with("@RDMHEADER { -\nrdm-version{3}:\t1.0\n") && announces_itself(answer) &&
         (says("Did not receive valid RDM message header.") || says("Unknown CSID: (null)\n") ||
          says("Unsupported query language.") || says("Invalid RDMQUERY specification.") ||
          says("Server Error: Cannot service request") || says("0 results.") ||
          says("Server description is unavailable.") || says("Schema description is unavailable.") ||
          says("Taxonomy is unavailable."));
}

/// compare runs an operation with all its memory and again with failures. An answer that is neither right nor an abort
/// must lack a part or be a refusal; hosts do not send it.
template <typename Serve>
Verdict compare(Memory &memory, Serve serve) {
  static const Answer right = [&] {
    Service service;
    return serve(service);
  }();
  Service service;
  const Answer answer = memory.failing([&] { return serve(service); });
  if (answer == right) return Verdict::right;
  if (answer.result == HOST_ABORT) return Verdict::refused;
  const bool is_known = is_incomplete(answer, right) || is_refusal(answer);
  return memory.refused() && is_known ? Verdict::incomplete : Verdict::wrong;
}

/// forget_sections forgets the critical sections of the service, which were made by an operation's host and end with
/// it. A host that lasts as long as the process never releases them.
void forget_sections() { rdm_log_crit = rdm_service_crit = nullptr; }

/// Section makes a critical section for the time of an operation.
class Section {
 public:
  explicit Section(host_crit *&section) { section = host_crit_create(); }
  Section(const Section &) = delete;
  Section &operator=(const Section &) = delete;
  ~Section() { forget_sections(); }
};

// ---- Initialisation ----

/// Start holds the configuration of a service, and ends the service.
struct Start {
  support::TemporaryDirectory directory;
  support::Environment path{"PATH", "/usr/bin:/bin"};
  std::string services = directory.write("csid.conf", "csid=\"c\" catalog-database=\"/c\"\n");
  std::string log = directory.path("log");
  std::string lines = "bindir=\"/opt/bin\"\n# a comment\ncsid-config=\"" + services + "\"\ncsid-default=\"c\"\n" +
                      "logfile=\"" + log + "\" debug-logfile=\"" + directory.path("debug") + "\"\n";
  std::string config = directory.write("rdm.conf", lines);
  PblockPtr block{host_param_create(3)};

  Start() {
    forget_sections();
    host_param_add("config", config.c_str(), block.get());
  }
  Start(const Start &) = delete;
  Start &operator=(const Start &) = delete;
  ~Start() { end(); }

  PblockPtr parsed() const {
    PblockPtr parsed(host_param_create(3));
    for (size_t at = 0, end = 0; at < lines.size(); at = end + 1) {
      end = lines.find('\n', at);
      if (lines[at] != '#') host_param_parse(lines.substr(at, end - at).c_str(), parsed.get());
    }
    return parsed;
  }

  bool is_whole() const {
    const char *directories = std::getenv("PATH");
    return rdm_log_crit != nullptr && rdm_service_crit != nullptr && logfile == log && logfd != -1 &&
           equals(csid_findval("catalog-database", "c"), "/c") && equals(csid_default(nullptr), "c") &&
           equals(cs_csidcf, services.c_str()) && directories != nullptr &&
           std::strncmp(directories, "/opt/bin:", 9) == 0;
  }

  static void end() {
    rdm_log_terminate();
    forget_sections();
    csid_terminate();
    cslog_terminate();
    cslog_set_level(0);
    host_free(std::exchange(cs_csidcf, nullptr));
  }
};

/// The first start sets environment texts that stay allocated until the next start replaces them.
template <typename Init>
Verdict start_service(Memory &memory, Init init) {
  {
    const Start first;
    const PblockPtr config = first.parsed();
    rdm_init_real(config.get(), nullptr, nullptr);
    Start::end();
  }
  memory.keep();
  const Start start;
  testing::internal::CaptureStderr();
  const int result = init(start);
  testing::internal::GetCapturedStderr();
  if (result == -1) return Verdict::refused;
  if (start.is_whole()) return result == 0 ? Verdict::right : Verdict::wrong;
  return Verdict::incomplete;
}

// ---- Requests ----

template <int (*serve)(pblock *, Session *, Request *)>
Verdict serve_request(Memory &memory) {
  const Section section(rdm_service_crit);
  return compare(memory, [](Service &service) { return sent(serve(nullptr, service.sn, service.rq), service); });
}

template <uint32_t max_memory>
Verdict send_result(Memory &memory) {
  const auto serve = [&](Service &service, bool is_failing) {
    const std::string text(9000, 'x');
    CsioPtr result = make_csio(max_memory);
    csio_append(result.get(), text.data(), static_cast<int32_t>(text.size()));
    csio_finish(result.get());
    const auto send = [&] { return rdm_send_result(0, result.release(), service.sn, service.rq); };
    return sent(is_failing ? memory.failing(send) : send(), service);
  };
  static const Answer right = [&] {
    Service service;
    return serve(service, false);
  }();
  Service service;
  const Answer answer = serve(service, true);
  return judge(answer == right, answer.result == -1 && answer.bytes.empty());
}

// ---- Headers ----

bool is_reset(const rdmhdr &header) {
  return header.type == RDM_UNKNOWN && header.csid == nullptr && header.query_language == nullptr &&
         header.error_message == nullptr && header.error_code == 0;
}

// ---- Handlers ----

Answer answer_of(int32_t result, Service &service) {
  csio_finish(service.response.get());
  return result == 0 ? Answer{result, bytes_of(service.response.get()), ""} : sent(result, service);
}

template <rdm_handler handle>
Verdict handler(Memory &memory) {
  return compare(memory, [](Service &service) {
    csio *body = service.body.get(), *response = service.response.get();
    return answer_of(handle(service.header.get(), body, response, service.sn, service.rq), service);
  });
}

constexpr Operation rdm_scenarios[] = {
    {"rdm_init", Need::unreported,
     [](Memory &memory) {
       return start_service(memory, [&](const Start &start) {
         return memory.failing([&] { return rdm_init(start.block.get(), nullptr, nullptr); });
       });
     }},
    {"rdm_init_real", Need::unreported,
     [](Memory &memory) {
       return start_service(memory, [&](const Start &start) {
         const PblockPtr config = start.parsed();
         return memory.failing([&] { return rdm_init_real(config.get(), nullptr, nullptr); });
       });
     }},
    {"rdm_service", Need::unreported, serve_request<rdm_service>},
    {"_real_rdm_service", Need::unreported, serve_request<_real_rdm_service>},
    {"rdm_type", Need::unreported,
     [](Memory &memory) {
       return compare(memory, [](Service &service) {
         const int result = rdm_type(nullptr, service.sn, service.rq);
         return Answer{result, service.x.response("content-type"), ""};
       });
     }},
    {"rdm_log rdm_log_terminate",
     [](Memory &memory) {
       Service service;
       const Section section(rdm_log_crit);
       const support::TemporaryDirectory directory;
       const std::string path = directory.path("log");
       logfd = host_open_append(path.c_str());
       host_param_add("rdm-log-message", "line\n", service.rq->vars);
       memory.failing([&] {
         rdm_log(nullptr, service.sn, service.rq);
         rdm_log_terminate();
       });
       return support::read_file(path) == "line\n" && logfd == -1;
     }},
    {"rdm_log_add", Need::reported,
     [](Memory &memory) {
       Service service;
       const int result = memory.failing([&] { return rdm_log_add("message", "a", "b", service.sn, service.rq); });
       const std::string line = service.x.var("rdm-log-message");
       return judge(result == 0 && line.find("\"message\" a b\n") != std::string::npos, result == -1 && line.empty());
     }},
    {"rdm_stop", Need::unreported,
     [](Memory &memory) {
       return compare(memory, [](Service &service) {
         return sent(rdm_stop("No.", "function", HOST_DONE, service.sn, service.rq), service);
       });
     }},
    {"rdm_validate_uri rdm_encode_gzip rdm_decode_gzip",
     [](Memory &memory) {
       return memory.failing([] {
         return rdm_validate_uri("/rdm/rd-request", RDM_RD_REQUEST) == 1 && rdm_encode_gzip() == 0 &&
                rdm_decode_gzip() == 0;
       });
     }},
    {"run_rdmgr_request",
     [](Memory &memory) {
       memory.failing([] { run_rdmgr_request(); });
       return true;
     }},
    {"rdm_send_http_header", Need::unreported,
     [](Memory &memory) {
       return compare(memory, [](Service &service) {
         const int result = rdm_send_http_header(10, service.sn, service.rq);
         return Answer{result, service.x.response("content-type"), service.x.response("content-length")};
       });
     }},
    {"rdm_send_result", Need::none, send_result<0>},
    {"rdm_send_result", Need::reported, send_result<4096>},
    {"rdmhdr_create", Need::reported,
     [](Memory &memory) {
       rdmhdr *made = nullptr;
       memory.failing([&] { rdmhdr_create(&made); });
       const RdmHeaderPtr header(made);
       return judge(header && is_reset(*made) && made->version == nullptr, !header);
     }},
    // The version may be missing; it is never read.
    {"rdmhdr_reset", Need::unreported,
     [](Memory &memory) {
       const Service service;
       host_free(std::exchange(service.header->version, host_strdup("2.0")));
       memory.failing([&] { rdmhdr_reset(service.header.get()); });
       if (!is_reset(*service.header)) return Verdict::wrong;
       return equals(service.header->version, "1.0") ? Verdict::right : Verdict::incomplete;
     }},
    {"rdmhdr_destroy",
     [](Memory &memory) {
       Service service;
       memory.failing([&] { rdmhdr_destroy(service.header.release()); });
       return true;
     }},
    {"rdmhdr_print", Need::unreported,
     [](Memory &memory) {
       return compare(memory, [](Service &service) {
         const int result = rdmhdr_print(service.header.get(), service.response.get());
         return Answer{result, bytes_of(service.response.get()), ""};
       });
     }},
    // A text that could not be copied is null, never a different text.
    {"rdmhdr_parse", Need::unreported,
     [](Memory &memory) {
       const Service service;
       const CsioPtr text = make_csio();
       const std::string bytes = header_text("rd-request");
       csio_append(text.get(), bytes.data(), static_cast<int32_t>(bytes.size()));
       const rdmhdr &header = *service.header;
       const int result = memory.failing([&] { return rdmhdr_parse(text.get(), service.header.get()); });
       if (result == 1) return judge(false, is_reset(header));
       for (const auto &[value, expected] : {std::pair(header.csid, "c"), std::pair(header.query_language, "gatherer")})
         if (value != nullptr && !equals(value, expected)) return Verdict::wrong;
       if (result != 0 || header.type != RDM_RD_REQUEST) return Verdict::wrong;
       return header.csid != nullptr && header.query_language != nullptr && header.version != nullptr
                  ? Verdict::right
                  : Verdict::incomplete;
     }},
    {"rdm_get_response", Need::unreported,
     [](Memory &memory) {
       return compare(memory, [](Service &service) {
         int32_t gzip = 1, status = -1;
         rdm_get_response(service.header.get(), service.body.get(), service.sn, service.rq, service.response.get(),
                          &gzip, &status);
         return answer_of(status, service);
       });
     }},
    {"rdm_msg_handler_default", Need::unreported, handler<rdm_msg_handler_default>},
    {"status_ok", Need::unreported, handler<status_ok>},
    {"status_illegal", Need::unreported, handler<status_illegal>},
    {"sd_request", Need::unreported, handler<sd_request>},
    {"schema_request", Need::unreported, handler<schema_request>},
    {"tax_request", Need::unreported, handler<tax_request>},
    {"rds_rd_request", Need::unreported, handler<rds_rd_request>},
    // The import runs a script instead of minidba that records its verbs and counts the records it reads.
    {"rds_rd_response", Need::unreported,
     [](Memory &memory) {
       Service service;
       const support::TemporaryDirectory directory;
       const std::string calls = directory.path("calls");
       const std::string script = directory.write("minidba", "#!/bin/sh\nfor verb; do :; done\necho $verb >> " + calls +
                                                                 "\nif [ $verb = update ]; then grep -c @FILE; fi\n");
       ::chmod(script.c_str(), 0755);
       const support::Environment path("PATH", (directory.path() + ":/usr/bin:/bin").c_str());
       const std::string delivery = record_of(1) + record_of(2);
       csio_reset(service.body.get());
       csio_append(service.body.get(), delivery.data(), static_cast<int32_t>(delivery.size()));
       service.header->type = RDM_RD_RESPONSE;
       const int32_t result = memory.failing([&] {
         return rds_rd_response(service.header.get(), service.body.get(), service.response.get(), service.sn,
                                service.rq);
       });
       const std::string text = bytes_of(service.response.get());
       const std::string verbs = support::file_exists(calls) ? support::read_file(calls) : "";
       const bool says_accepted = text.find("Accepted 2 RDs from") != std::string::npos;
       const bool is_whole = verbs == "update\nexpire\nindex\nunclassified\n";
       if (result != 0 || (says_accepted && !is_whole)) return Verdict::wrong;
       if (says_accepted && text.find("rdm-version") != std::string::npos) return Verdict::right;
       if (text.find("Accepted 0") != std::string::npos) return Verdict::wrong;
       return text.find("Failed to import RDs") != std::string::npos ? Verdict::refused : Verdict::incomplete;
     }},
    {"cs_dbsearch_start", Need::reported,
     [](Memory &memory) {
       const Service service;
       cs_dbindex index{};
       const int result = memory.failing([&] { return cs_dbsearch_start("c", &index); });
       const HostPtr<cs_dbentry> entries(index.entries);
       return judge(result == 0 && index.count == catalog_size && index.entries[4].key == 5,
                    result == 1 && index.entries == nullptr);
     }},
    {"cs_dbsearch",
     [](Memory &memory) {
       cs_dbentry entries[] = {{1, 0, 1, 0, 0}, {2, 0, 2, 0, 0}, {3, 0, 3, 0, 0}};
       const cs_dbindex index{entries, 3};
       return memory.failing([&] { return cs_dbsearch(&index, 2); }) == 1;
     }},
    // If the database cannot be opened for lack of memory, the answer is "0 results.", as for a missing database.
    {"send_since", Need::unreported,
     [](Memory &memory) {
       Service service;
       cs_dbindex index{};
       cs_dbsearch_start("c", &index);
       const HostPtr<cs_dbentry> entries(index.entries);
       int32_t count = 0;
       uint32_t bytes = 0;
       const int result =
           memory.failing([&] { return send_since("c", &index, 0, nullptr, &count, &bytes, service.sn, service.rq); });
       const std::string &text = support::host_record().sent;
       std::string whole = soif("RDMHEADER", "-", {{"rdm-version", "1.0"}, {"rdm-type", "rd-response"}}) + "\n\n";
       for (uint32_t number = 1; number <= catalog_size; ++number) whole += record_of(number);
       if (text == whole && result == 0 && count == catalog_size && bytes == whole.size()) return Verdict::right;
       // If the declared bytes cannot follow, the connection is broken off.
       if (result == -1) return judge(false, text.size() < bytes || text.empty());
       const bool is_known =
           lacks_a_part(text, whole) || (count == 0 && is_refusal({result, text, std::to_string(bytes)}));
       return memory.refused() && is_known ? Verdict::incomplete : Verdict::wrong;
     }},
    // Every counted description is printed completely, or the output lacks bytes.
    {"rds_send_rd", Need::unreported,
     [](Memory &memory) {
       Service service;
       cslist *made = nullptr;
       cslist_create(&made);
       const ListPtr keys(made);
       for (const char *key : {"00000001", "00000002"}) cslist_append(made, key);
       const int32_t count = memory.failing([&] { return rds_send_rd("c", made, nullptr, service.response.get()); });
       const std::string text = bytes_of(service.response.get()), whole = record_of(1) + record_of(2);
       if (count == 2 && text == whole) return Verdict::right;
       return memory.refused() && (text == whole || lacks_a_part(text, whole)) ? Verdict::incomplete : Verdict::wrong;
     }},
    {"cs_dbsearch_log", Need::unreported,
     [](Memory &memory) {
       Service service;
       memory.failing([&] { cs_dbsearch_log(5, 100, 0, service.sn, service.rq); });
       const std::string line = service.x.var("rdm-log-message");
       if (line.empty()) return Verdict::incomplete;
       return judge(line.find("\"5 RDs Transfered\" - 100\n") != std::string::npos, false);
     }},
    {"rds_qmgr_do_error", Need::unreported,
     [](Memory &memory) {
       return compare(memory, [](Service &service) {
         return answer_of(rds_qmgr_do_error(service.header.get(), service.body.get(), service.response.get()), service);
       });
     }},
    {"rds_status_ok", Need::unreported,
     [](Memory &memory) {
       return compare(memory, [](Service &service) {
         const int32_t result = rds_status_ok("Text.", "Error.", service.header.get(), service.body.get(),
                                              service.response.get(), service.sn, service.rq);
         return answer_of(result, service);
       });
     }},
};

}  // namespace

std::vector<Operation> rdm_operations() { return {std::begin(rdm_scenarios), std::end(rdm_scenarios)}; }

}  // namespace rdm::faults
