// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/metrics.h"

#include <algorithm>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "hosts/common/log_file.h"

namespace rdm::rdmd {
namespace {

/// The types of RDM messages as the service prints them; "unknown": a request for the service whose type is not known;
/// "http": any other request.
constexpr std::array<std::string_view, 14> type_names = {
    "rd-request",
    "rd-delete-request",
    "rd-response",
    "rd-delete-response",
    "server-description-request",
    "server-description-response",
    "schema-description-request",
    "schema-description-response",
    "taxonomy-description-request",
    "taxonomy-description-response",
    "status-request",
    "status-response",
    "unknown",
    "http",
};
constexpr std::size_t unknown_type = 12, http_type = 13;

constexpr std::array<std::string_view, static_cast<std::size_t>(RequestResult::count)> result_names = {
    "answered", "not_found", "refused", "failed", "unavailable", "cut", "gone"};
constexpr std::array<std::string_view, static_cast<std::size_t>(WorkerState::count)> worker_states = {"idle", "busy",
                                                                                                      "stopping"};
constexpr std::array<std::string_view, std::tuple_size_v<ConnectionCounts>> connection_states = {
    "handshake", "idle", "head", "body", "service", "sending", "lingering", "closed"};

std::uint64_t not_negative(std::int64_t number) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(number, 0));
}

void write_one(Exposition &text, std::string_view name, std::string_view type, std::string_view help,
               std::uint64_t value) {
  text.family(name, type, help);
  text.sample({}, value);
}

void write_times(Exposition &text, std::string_view name, std::string_view help, const Histogram &times) {
  text.family(name, "histogram", help);
  times.write(text);
}

}  // namespace

RequestResult result_of(const AccessEntry &entry) {
  if (!entry.complete) return entry.sent ? RequestResult::cut : RequestResult::gone;
  if (entry.status < 400) return RequestResult::answered;
  if (entry.status == 404) return RequestResult::not_found;
  if (entry.status == 503) return RequestResult::unavailable;
  return entry.status < 500 ? RequestResult::refused : RequestResult::failed;
}

void Histogram::observe(Time time) {
  const auto place = std::lower_bound(bounds.begin(), bounds.end(), time.count());
  counts_[static_cast<std::size_t>(place - bounds.begin())].add();
  sum_.add(not_negative(time.count()));
}

void Histogram::write(Exposition &text) const {
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < bounds.size(); ++i) {
    count += counts_[i].value();
    text.sample({{"le", decimal_seconds(bounds[i])}}, count, "_bucket");
  }
  count += counts_.back().value();
  text.sample({{"le", "+Inf"}}, count, "_bucket");
  text.seconds({}, static_cast<std::int64_t>(sum_.value()), "_sum");
  text.sample({}, count, "_count");
}

Metrics::Metrics() { static_assert(types == type_names.size()); }

void Metrics::set_catalogs(const std::vector<std::string> &csids) {
  const std::unique_lock lock(catalogs_mutex_);
  std::erase_if(catalogs_, [&](const auto &entry) { return std::ranges::find(csids, entry.first) == csids.end(); });
  for (const std::string &csid : csids) catalogs_.try_emplace(csid);
}

std::size_t Metrics::type_index(const AccessEntry &entry) {
  if (!entry.for_service) return http_type;
  const auto found = std::ranges::find(type_names, entry.labels.type);
  const auto index = static_cast<std::size_t>(found - type_names.begin());
  return std::min(index, unknown_type);
}

void Metrics::count(const AccessEntry &entry) {
  const auto type = type_index(entry), result = static_cast<std::size_t>(result_of(entry));
  {
    const std::shared_lock lock(catalogs_mutex_);
    const auto found = catalogs_.find(entry.labels.catalog);
    (found == catalogs_.end() ? unknown_ : found->second)[type][result].add();
  }
  bytes_.add(not_negative(entry.bytes));
  if (entry.complete) descriptions_.add(not_negative(entry.labels.hits.value_or(0)));
  if (entry.queued) queued_.observe(*entry.queued);
  if (entry.served) served_.observe(*entry.served);
  if (entry.sent) sent_.observe(*entry.sent);
}

void Metrics::write_requests(Exposition &text, std::string_view csid, const Catalog &catalog) {
  for (std::size_t type = 0; type < types; ++type)
    for (std::size_t result = 0; result < results; ++result)
      if (const std::uint64_t count = catalog[type][result].value(); count > 0)
        text.sample({{"type", type_names[type]}, {"catalog", csid}, {"outcome", result_names[result]}}, count);
}

void Metrics::write_served(Exposition &text) const {
  text.family("rdmd_requests_total", "counter",
              "Requests by type, catalog and outcome; combinations without any are left out.");
  {
    const std::shared_lock lock(catalogs_mutex_);
    for (const auto &[csid, catalog] : catalogs_) write_requests(text, csid, catalog);
  }
  write_requests(text, "unknown", unknown_);
  write_one(text, "rdmd_descriptions_sent_total", "counter", "Descriptions in answers that were sent completely.",
            descriptions_.value());
  write_one(text, "rdmd_body_bytes_sent_total", "counter", "Bytes of bodies sent.", bytes_.value());
  write_times(text, "rdmd_queue_seconds", "Time from the complete request to the call of the service.", queued_);
  write_times(text, "rdmd_service_seconds", "Time in the service.", served_);
  write_times(text, "rdmd_sending_seconds", "Time from the answer until it was sent.", sent_);
}

void Metrics::write_moment(Exposition &text, const Moment &moment) const {
  write_one(text, "rdmd_queue_length", "gauge", "Requests that wait for the service.", moment.queued);
  text.family("rdmd_workers", "gauge", "Workers that have become ready, by state.");
  for (std::size_t i = 0; i < worker_states.size(); ++i) text.sample({{"state", worker_states[i]}}, moment.workers[i]);
  write_one(text, "rdmd_worker_restarts_total", "counter", "Workers started in place of one that ended.",
            restarts_.value());
  text.family("rdmd_connections", "gauge", "Open connections by state.");
  for (std::size_t i = 0; i + 1 < connection_states.size(); ++i)  // closed ones are about to go
    text.sample({{"state", connection_states[i]}}, moment.connections[i]);
  write_one(text, "rdmd_connections_accepted_total", "counter", "Connections accepted.", moment.accepted);
  write_one(text, "rdmd_spill_bytes", "gauge", "Bytes of answers in temporary files.", not_negative(moment.spilled));
  write_one(text, "rdmd_ready", "gauge", "1 if /readyz answers 200.", moment.ready ? 1 : 0);
}

void Metrics::write_catalogs(Exposition &text, const std::vector<CatalogFigures> &catalogs) {
  text.family("rdmd_catalog_failing", "gauge", "1 if the database or the index is missing, empty or damaged.");
  for (const CatalogFigures &one : catalogs) text.sample({{"catalog", one.csid}}, one.failing ? 1 : 0);
  text.family("rdmd_catalog_descriptions", "gauge", "Descriptions in the index.");
  for (const CatalogFigures &one : catalogs)
    if (one.descriptions) text.sample({{"catalog", one.csid}}, *one.descriptions);
  text.family("rdmd_catalog_newest_change_timestamp_seconds", "gauge", "Time of the newest change in the index.");
  for (const CatalogFigures &one : catalogs)
    if (one.newest_change) text.sample({{"catalog", one.csid}}, not_negative(*one.newest_change));
}

std::string Metrics::text(const Moment &moment, const ErrorLog &errors) const {
  Exposition text;
  write_served(text);
  write_moment(text, moment);
  text.family("rdmd_limits_hit_total", "counter", "Clients refused or cut off, and answers that broke off, by kind.");
  for (std::size_t kind = 0; kind < trouble_kinds; ++kind)
    text.sample({{"kind", trouble_name(static_cast<Trouble>(kind))}}, errors.troubles(static_cast<Trouble>(kind)));
  write_one(text, "rdmd_log_lines_dropped_total", "counter", "Log lines that could not be written.",
            hosts::dropped_lines());
  write_catalogs(text, moment.catalogs);
  text.family("rdmd_build_info", "gauge", "The version of the server.");
  text.sample({{"version", RDM_VERSION}}, 1);
  text.family("process_start_time_seconds", "gauge", "Start of the process, in seconds since 1970.");
  text.seconds({}, std::chrono::duration_cast<std::chrono::nanoseconds>(started_.time_since_epoch()).count());
  return text.text();
}

}  // namespace rdm::rdmd
