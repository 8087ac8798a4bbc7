// SPDX-License-Identifier: MIT
#include "tools/rdm/http.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <new>

#include <curl/curl.h>

#include "qxapi/ascii.h"
#include "qxapi/number.h"

namespace rdm::client {
namespace {

struct HandleCleanup {
  void operator()(CURL *handle) const { curl_easy_cleanup(handle); }
  void operator()(curl_slist *list) const { curl_slist_free_all(list); }
};
using Handle = std::unique_ptr<CURL, HandleCleanup>;
using FieldList = std::unique_ptr<curl_slist, HandleCleanup>;

/// Framing is what the fields of an answer say about the length of its body.
struct Framing {
  std::optional<int64_t> length;
  bool is_chunked = false, is_contradictory = false;

  void announce(std::optional<int64_t> announced) {
    is_contradictory |= !announced || *announced < 0 || (length && length != announced);
    length = announced;
  }
  bool is_sound() const { return !is_contradictory && length.has_value() != is_chunked; }
};

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && ascii::is_space(text.back())) text.remove_suffix(1);
  while (!text.empty() && ascii::is_space(text.front())) text.remove_prefix(1);
  return text;
}

std::string lower(std::string_view text) {
  std::string word(text);
  for (char &c : word) c = ascii::lower(c);
  return word;
}

using Clock = std::chrono::steady_clock;

/// Exchange is one POST, as the callbacks of libcurl see it.
struct Exchange {
  const HttpClient::Sink &sink;
  double timeout;  // seconds without a byte
  HttpReply reply = {};
  Framing framing = {};
  bool has_head = false;  // all of it
  std::exception_ptr thrown = {};
  curl_off_t transferred = 0;  // in both directions
  Clock::time_point last_byte = Clock::now();

  /// begin forgets the fields of an earlier answer, such as 100 Continue.
  void begin() {
    reply.content_type.clear();
    reply.encoding.clear();
    reply.location.clear();
    reply.date.reset();
    framing = {};
    has_head = false;
  }
  void take_field(const std::string &name, std::string_view value) {
    if (name == "content-length") framing.announce(parse_number<int64_t>(value));
    if (name == "transfer-encoding") framing.is_chunked = lower(value) == "chunked";
    if (name == "content-type") reply.content_type = lower(trimmed(value.substr(0, value.find(';'))));
    if (name == "content-encoding" && lower(value) != "identity") reply.encoding = value;
    if (name == "location") reply.location = value;
    if (name != "date") return;
    const time_t date = curl_getdate(std::string(value).c_str(), nullptr);
    if (date > 0) reply.date = date;
  }
};

std::size_t take_head(char *bytes, std::size_t, std::size_t count, void *exchange) {
  Exchange &x = *static_cast<Exchange *>(exchange);
  const std::string_view line(bytes, count);
  const std::size_t colon = line.find(':');
  x.has_head = line == "\r\n" || line == "\n";
  if (line.starts_with("HTTP/"))
    x.begin();
  else if (colon != std::string_view::npos)
    x.take_field(lower(line.substr(0, colon)), trimmed(line.substr(colon + 1)));
  return count;
}

/// take_body keeps an exception: it must not pass through libcurl.
std::size_t take_body(char *bytes, std::size_t, std::size_t count, void *exchange) {
  Exchange &x = *static_cast<Exchange *>(exchange);
  try {
    x.sink({bytes, count});
    x.reply.received += static_cast<int64_t>(count);
    return count;
  } catch (...) {
    x.thrown = std::current_exception();
    return count == 0 ? 1 : 0;
  }
}

/// watch returns true to end an exchange that is silent. libcurl calls it about once a second.
int watch(void *exchange, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) {
  Exchange &x = *static_cast<Exchange *>(exchange);
  if (received + sent != x.transferred) {
    x.transferred = received + sent;
    x.last_byte = Clock::now();
  }
  return std::chrono::duration<double>(Clock::now() - x.last_byte).count() > x.timeout ? 1 : 0;
}

/// is_hopeless does not name CURLE_UNSUPPORTED_PROTOCOL, with which libcurl also answers to a cut status line.
bool is_hopeless(CURLcode code) {
  static constexpr CURLcode hopeless[] = {
      CURLE_URL_MALFORMAT,    CURLE_PEER_FAILED_VERIFICATION, CURLE_SSL_CACERT_BADFILE, CURLE_SSL_CERTPROBLEM,
      CURLE_SSL_ISSUER_ERROR, CURLE_SSL_ENGINE_NOTFOUND,      CURLE_LOGIN_DENIED,       CURLE_OUT_OF_MEMORY,
      CURLE_FAILED_INIT};
  return std::find(std::begin(hopeless), std::end(hopeless), code) != std::end(hopeless);
}

/// transfer_of also finds what libcurl accepts: an answer that ends within its head.
Transfer transfer_of(CURLcode code, const Exchange &exchange) {
  if (is_hopeless(code)) return Transfer::hopeless;
  const int64_t received = exchange.reply.received;
  if (code != CURLE_OK) return received > 0 ? Transfer::cut : Transfer::failed;
  if (!exchange.has_head) return Transfer::failed;
  if (!exchange.framing.is_sound()) return Transfer::unframed;
  return exchange.framing.length.value_or(received) == received ? Transfer::whole : Transfer::cut;
}

std::string reason_of(CURLcode code, const char *reason, const Exchange &exchange) {
  if (code == CURLE_ABORTED_BY_CALLBACK) return "the server is silent";
  if (code != CURLE_OK) return *reason != '\0' ? reason : curl_easy_strerror(code);
  if (!exchange.has_head) return "the answer ends within its head";
  if (!exchange.framing.is_sound()) return "the answer does not say how long it is";
  return "";
}

void set_flag(CURL *curl, CURLoption option, long value) { curl_easy_setopt(curl, option, value); }
void set_text(CURL *curl, CURLoption option, const std::string &value) {
  curl_easy_setopt(curl, option, value.c_str());
}

/// set_up sets the options that all exchanges share. HTTP/1.1 alone: its fields say how an answer is framed.
void set_up(CURL *curl, const HttpSettings &settings) {
  const long timeout = std::max(1L, std::lround(std::min(settings.timeout, 1e6)));
  set_flag(curl, CURLOPT_NOSIGNAL, 1);
  set_flag(curl, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
  set_text(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  set_flag(curl, CURLOPT_NETRC, CURL_NETRC_OPTIONAL);
  set_flag(curl, CURLOPT_CONNECTTIMEOUT, timeout);
  set_flag(curl, CURLOPT_NOPROGRESS, 0);
  curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, watch);
  set_flag(curl, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1);
  set_text(curl, CURLOPT_USERAGENT, settings.agent);
  if (!settings.ca_file.empty()) set_text(curl, CURLOPT_CAINFO, settings.ca_file);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, take_head);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, take_body);
}

FieldList request_fields() {
  FieldList fields;
  for (const char *field : {"Content-Type: application/x-rdm", "Accept: application/x-rdm", "Expect:"}) {
    curl_slist *longer = curl_slist_append(fields.get(), field);
    if (longer == nullptr) throw std::bad_alloc();
    (void)fields.release();
    fields.reset(longer);
  }
  return fields;
}

}  // namespace

struct HttpClient::State {
  Handle curl;
  FieldList fields = request_fields();
  double timeout = 0;
};

HttpClient::HttpClient(const HttpSettings &settings) : state_(std::make_unique<State>()) {
  static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (ready == CURLE_OK) state_->curl.reset(curl_easy_init());
  if (!state_->curl) throw std::bad_alloc();
  set_up(state_->curl.get(), settings);
  state_->timeout = settings.timeout;
  curl_easy_setopt(state_->curl.get(), CURLOPT_HTTPHEADER, state_->fields.get());
}

HttpClient::~HttpClient() = default;

HttpReply HttpClient::post(const std::string &url, const std::string &message, const Sink &sink) {
  CURL *curl = state_->curl.get();
  Exchange exchange{sink, state_->timeout};
  char reason[CURL_ERROR_SIZE] = "";
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, reason);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &exchange);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &exchange);
  curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &exchange);
  set_text(curl, CURLOPT_URL, url);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(message.size()));
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, message.c_str());
  const CURLcode code = curl_easy_perform(curl);
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, nullptr);
  if (exchange.thrown) std::rethrow_exception(exchange.thrown);
  long status = 0;
  curl_off_t pause = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_getinfo(curl, CURLINFO_RETRY_AFTER, &pause);
  HttpReply &reply = exchange.reply;
  reply.status = static_cast<int>(status);
  if (pause > 0) reply.retry_after = pause;
  reply.transfer = transfer_of(code, exchange);
  reply.error = reason_of(code, reason, exchange);
  return std::move(reply);
}

}  // namespace rdm::client
