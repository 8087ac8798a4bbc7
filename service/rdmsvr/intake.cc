// SPDX-License-Identifier: MIT
#include <cstring>

#include <libcs/cs.h>

#include "qxapi/ascii.h"
#include "qxapi/log_text.h"
#include "service/csid.h"
#include "service/message.h"
#include "service/text.h"

using namespace rdm;

namespace {

constexpr std::string_view uri_prefix = "/rdm/";
constexpr int32_t content_limit = 32768;
constexpr uint32_t memory_limit = 32768;

/// The result of a step: a refusal, or no text to continue. `report` is the text for the error log if it differs from
/// the answer.
struct Refusal {
  const char *text = nullptr;
  int value = HOST_DONE;
  const char *report = text;
};

constexpr Refusal go_on{};
constexpr Refusal out_of_memory{"RDM Server Error", HOST_ABORT};
constexpr Refusal invalid_header{"Did not receive valid RDM message header."};

/// The state of one request in the steps below.
struct Intake {
  Session *session;
  Request *request;
  const char *method = nullptr, *uri = nullptr, *query = nullptr;  // of the request line
  bool is_get = false;
  const char *uri_type = nullptr;  // the URI after "/rdm/", empty for "incoming"
  int32_t announced = 0;           // the content length, or 0
  int32_t consumed = 0;            // bytes taken from the input
  CsioPtr body = nullptr, header_text = nullptr;
  RdmHeaderPtr header = nullptr;
  HostText refusal = nullptr, report = nullptr;  // owned texts of a refusal
};

unsigned char next_byte(host_input *input) {
  const int byte = input->position < input->size ? input->data[input->position++] : host_input_next(input, 1);
  return static_cast<unsigned char>(byte);
}

/// Batch appends bytes to a buffer, many at a time. It appends the last ones when it is destroyed.
class Batch {
 public:
  explicit Batch(csio *io) noexcept : io_(io) {}
  Batch(const Batch &) = delete;
  Batch &operator=(const Batch &) = delete;
  ~Batch() { flush(); }

  void add(unsigned char byte) noexcept {
    if (count_ == sizeof bytes_) flush();
    bytes_[count_++] = byte;
  }

 private:
  void flush() noexcept { csio_append(io_, bytes_, static_cast<int32_t>(std::exchange(count_, 0))); }

  csio *const io_;
  size_t count_ = 0;
  unsigned char bytes_[512];
};

Refusal read_request_line(Intake &x) {
  x.method = host_param_find("method", x.request->line);
  x.uri = host_param_find("uri", x.request->line);
  x.query = host_param_find("query", x.request->line);
  if (x.method == nullptr || x.uri == nullptr) return {"Internal QXAPI error?", HOST_ABORT};
  return go_on;
}

Refusal check_method(Intake &x) {
  x.is_get = ascii::iequals(x.method, "get");
  if (x.query != nullptr && !x.is_get) return {"Malformed RDM request - Use GET method."};
  if (!x.is_get && !ascii::iequals(x.method, "post")) return {"Malformed RDM request - Use POST method."};
  return go_on;
}

Refusal check_uri(Intake &x) {
  if (!ascii::istarts_with(x.uri, uri_prefix)) return {"Malformed RDM request - Invalid URI."};
  x.uri_type = x.uri + uri_prefix.size();
  if (ascii::iequals(x.uri_type, "incoming")) x.uri_type = "";
  return go_on;
}

const char *request_header(const char *name, const Intake &x) {
  char *value = nullptr;
  return host_request_header(name, &value, x.session, x.request) == 0 ? value : nullptr;
}

Refusal check_length(Intake &x) {
  if (const char *length = request_header("content-length", x)) x.announced = std::max(ascii::to_int32(length), 0);
  if ((x.announced == 0 && !x.is_get) || x.announced > content_limit)
    return {"Content-length is undefined or too long."};
  return go_on;
}

Refusal check_encoding(Intake &x) {
  const char *encoding = request_header("content-encoding", x);
  if (encoding != nullptr && *encoding != '\0') return {"Unsupported content-encoding."};
  return go_on;
}

Refusal make_buffers(Intake &x) {
  x.body = make_csio(memory_limit);
  x.header_text = make_csio(memory_limit);
  return x.body && x.header_text ? go_on : out_of_memory;
}

/// read_header reads up to the first empty line, which it consumes but does not keep. Carriage returns become blanks,
/// and may stand between two newlines.
Refusal read_header(Intake &x) {
  Batch text(x.header_text.get());
  int newlines = 0;
  unsigned char last_visible = 0;
  for (int32_t kept = 0; kept < x.announced; ++kept) {
    unsigned char byte = next_byte(x.session->input);
    ++x.consumed;
    if (byte == '\n') {
      if (++newlines == 2) return go_on;
    } else if (byte == '\r') {
      byte = ' ';
    } else {
      newlines = 0;
    }
    if (!ascii::is_space(byte)) last_visible = byte;
    text.add(byte);
  }
  // The announced length ended before an empty line. The parser completes an object at the end of its input, so refuse
  // a header that is cut off here. A brace within a value passes this check: clients rely on the texts of the later
  // checks.
  return last_visible == '}' ? go_on : invalid_header;
}

/// build_message makes header and body from the query and the URI.
Refusal build_message(Intake &x) {
  const PblockPtr block(host_param_create(7));
  if (!block) return out_of_memory;
  if (x.query != nullptr) {
    const HostText copy(host_strdup(x.query));
    if (!copy) return out_of_memory;
    pblock_form2pblock(copy.get(), static_cast<int32_t>(std::strlen(copy.get())), block.get());
  }
  if (*x.uri_type != '\0' && host_param_find("type", block.get()) == nullptr)
    host_param_add("type", x.uri_type, block.get());
  const char *refusal = pblock_pblock2rdm(block.get(), x.header_text.get(), x.body.get());
  if (refusal != nullptr) return {refusal};
  csio_finish(x.body.get());
  return go_on;
}

Refusal read_message(Intake &x) { return x.is_get ? build_message(x) : read_header(x); }

Refusal parse_header(Intake &x) {
  csio_finish(x.header_text.get());
  csio_rewind(x.header_text.get());
  x.header = make_rdmhdr(RDM_UNKNOWN);
  if (!x.header) return out_of_memory;
  const int failure = rdmhdr_parse(x.header_text.get(), x.header.get());
  x.header_text.reset();
  return failure != 0 ? invalid_header : go_on;
}

Refusal check_type_fits_uri(Intake &x) {
  if (rdm_validate_uri(x.uri, x.header->type) != 1) return {"Did not receive valid URI for RDM header."};
  rdm_set_variable(rdm_type_variable, rdm_type_name(x.header->type), x.request);
  return go_on;
}

Refusal check_catalog(Intake &x) {
  if (const char *configured = csid_findval("csid", x.header->csid)) {
    rdm_set_variable(rdm_csid_variable, configured, x.request);
    return go_on;
  }
  const char *csid = x.header->csid != nullptr ? x.header->csid : "(null)";
  x.refusal = format_text("Unknown CSID: %s\n", csid);
  x.report = format_text("Unknown CSID: %s\n", LogText(csid).c_str());
  return x.refusal && x.report ? Refusal{x.refusal.get(), HOST_DONE, x.report.get()} : out_of_memory;
}

/// read_announced_body reads `count` bytes. If the host has fewer, the missing bytes are 0.
void read_announced_body(Intake &x, int32_t count) {
  Batch bytes(x.body.get());
  for (int32_t i = 0; i < count; ++i) bytes.add(next_byte(x.session->input));
  x.consumed += count;
}

/// read_to_end reads to the end of the input after a header that used up the announced length. The 0 at the end is
/// counted, too, so such a request has more bytes than announced and is refused. An error ends the input.
void read_to_end(Intake &x) {
  Batch bytes(x.body.get());
  host_input *input = x.session->input;
  for (int byte = 1; byte > 0;) {
    byte = input->position < input->size ? input->data[input->position++] : host_input_next(input, 1);
    ++x.consumed;
    if (byte > 0) bytes.add(static_cast<unsigned char>(byte));
  }
}

Refusal read_body(Intake &x) {
  if (x.is_get) return go_on;
  const int32_t remaining = x.announced - x.consumed;
  if (remaining > 0)
    read_announced_body(x, remaining);
  else
    read_to_end(x);
  csio_finish(x.body.get());
  return go_on;
}

Refusal check_body_length(Intake &x) {
  csio_rewind(x.body.get());
  if (!x.is_get && x.announced != x.consumed) return {"Did not receive content-length bytes."};
  return go_on;
}

/// The checks run in this order because clients read the words of the first refusal.
constexpr Refusal (*steps[])(Intake &) = {
    read_request_line, check_method, check_uri,           check_length,  check_encoding, make_buffers,
    read_message,      parse_header, check_type_fits_uri, check_catalog, read_body,      check_body_length,
};

/// respond calls the handler of the message and sends its answer, unless the handler did so.
int respond(Intake &x) {
  CsioPtr result = make_csio(memory_limit);
  if (!result) return rdm_stop(out_of_memory.text, rdm_report_name, out_of_memory.value, x.session, x.request);
  int32_t gzip = 0, status = 0;
  rdm_get_response(x.header.get(), x.body.get(), x.session, x.request, result.get(), &gzip, &status);
  x.header.reset();
  x.body.reset();
  csio_finish(result.get());
  if (status != 0) return HOST_DONE;
  if (gzip != 0 && host_param_find("content-encoding", x.request->response) == nullptr)
    host_param_add("content-encoding", "x-gzip", x.request->response);
  return rdm_send_result(1, result.release(), x.session, x.request);
}

/// stop answers with `message` and reports `report` to the error log. Returns `value`.
int stop(const char *message, const char *report, const char *function, int value, Session *sn, Request *rq) {
  CsioPtr answer = make_csio();
  const RdmHeaderPtr header = make_rdmhdr(RDM_STATUS_RESPONSE);
  if (answer && header) {
    header->error_message = host_strdup(message);
    rdmhdr_print(header.get(), answer.get());
    append_text(answer.get(), "\n\n");
    append_text(answer.get(), message);
    append_text(answer.get(), "\n\n");
    rdm_send_result(1, answer.release(), sn, rq);
  }
  host_report_error(0, function, sn, rq, "%s", report);
  return value;
}

}  // namespace

int rdm_service(pblock *pb, Session *sn, Request *rq) noexcept {
  // The section is null before rdm_init and after one that failed.
  const CritGuard inside(rdm_service_crit);
  return _real_rdm_service(pb, sn, rq);
}

int _real_rdm_service(pblock *, Session *sn, Request *rq) noexcept {
  Intake x{.session = sn, .request = rq};
  for (const auto step : steps)
    if (const Refusal refusal = step(x); refusal.text != nullptr)
      return stop(refusal.text, refusal.report, rdm_report_name, refusal.value, sn, rq);
  return respond(x);
}

int rdm_stop(const char *message, const char *function, int value, Session *sn, Request *rq) noexcept {
  if (message == nullptr) message = "RDM Server Error";
  return stop(message, message, function, value, sn, rq);
}

int rdm_validate_uri(const char *uri, int32_t type) noexcept {
  if (!ascii::istarts_with(uri, uri_prefix)) return 0;
  const std::string_view name(uri + uri_prefix.size());
  // Server-description requests and all responses must use their own URI.
  const bool can_be_incoming = type == RDM_RD_REQUEST || type == RDM_STATUS_REQUEST || type == RDM_SCHEMA_REQUEST ||
                               type == RDM_TAXONOMY_REQUEST;
  const bool is_valid = ascii::iequals(name, "incoming") ? can_be_incoming : ascii::iequals(name, rdm_type_name(type));
  return is_valid ? 1 : 0;
}

int rdm_type(pblock *, Session *, Request *rq) noexcept {
  const char *uri = host_param_find("uri", rq->line);
  if (uri == nullptr || !ascii::istarts_with(uri, uri_prefix)) return HOST_NOT_HANDLED;
  if (rq->response != nullptr) {
    while (host_param_find_entry("content-type", rq->response, 0) != nullptr)
      pblock_remove_n_free("content-type", rq->response);
    host_param_add("content-type", "application/x-rdm", rq->response);
  }
  return HOST_DONE;
}
