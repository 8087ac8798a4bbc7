// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <algorithm>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nginx.h"
#include "speed/command.h"
#include "speed/ldap_reader.h"
#include "speed/reader.h"
#include "speed/sections.h"
#include "speed/slapd.h"

namespace rdm::bench {
namespace {

/// Kind is a kind of harvest: the request, the first entry of the index that it concerns, the same for slapd, and the
/// limits relative to raw.
struct Kind {
  std::string name, title, target;
  std::size_t first;
  LdapSearch search;
  double limit_first, limit_unchanged;
};

std::vector<Kind> kinds_of(const Stage &stage) {
  const std::size_t newest = stage.records() - stage.newest();
  return {{"harvest", "whole harvest", harvest_target, 0, {}, 0.5, 0.25},
          {"since", "since, newest 1 %", stage.since_target(), newest, {newest, {}}, 1.1, 0.5},
          {"attribute",
           "one attribute of twelve",
           std::string(harvest_target) + "&view-attributes=title",
           0,
           {{}, {"rdtitle"}},
           0.35,
           0.25}};
}

constexpr std::size_t crowd = 8;

/// ask_eight has eight clients ask at once, each twice, and returns the time for an answer.
Cost ask_eight(pid_t server, int port, const std::string &target) {
  constexpr std::size_t times = 2;
  std::vector<Reader> readers;
  for (std::size_t i = 0; i < crowd; ++i) readers.emplace_back(port).connect();
  const Cost all = cost_of_single_work(server, [&] {
    std::vector<std::future<void>> answers;
    answers.reserve(crowd);
    for (Reader &reader : readers)
      answers.push_back(std::async(std::launch::async, [&] {
        for (std::size_t i = 0; i < times; ++i) reader.ask(target);
      }));
    for (std::future<void> &answer : answers) answer.get();
  });
  return {all.seconds / (crowd * times), all.cpu / (crowd * times)};
}

/// Readings has the server and its peers ready, and measures them in rounds.
class Readings {
 public:
  explicit Readings(const Stage &stage)
      : stage_(stage), ours_(stage.port()), raws_(stage.raw().port()), kinds_(kinds_of(stage)) {
    if (Nginx::installed()) start_nginx();
    if (SlapdDirectory::installed()) start_slapd();
    for (const Kind &kind : kinds_)
      if (stage_.options().wants(kind.name)) add(kind);
    if (stage_.options().wants("eight")) add_eight(kinds_.front());
    ::sync();
    rounds_.run(stage_.options().rounds);
  }

  std::vector<Row> rows(Sizes &sizes) const {
    std::vector<Row> all;
    for (const Kind &kind : kinds_)
      if (stage_.options().wants(kind.name)) add_rows(kind, sizes, all);
    if (stage_.options().wants("eight")) add_row_of_eight(all);
    return all;
  }

 private:
  void start_nginx() {
    nginx_.emplace("1");
    nginxs_.emplace(nginx_->port());
    for (const Kind &kind : kinds_) ours_.save(kind.target, nginx_->file(kind.name));
  }

  void start_slapd() {
    directory_.emplace(stage_.records());
    cost_of(directory_->load_command());
    slapd_.emplace(*directory_);
    slapds_.emplace(slapd_->port());
  }

  /// check_size fails if an answer is shorter than its records: the rounds would compare different work.
  void check_size(const Kind &kind) {
    ours_.connect();
    raws_.connect();
    if (kind.search.attributes.empty() && ours_.ask(kind.target) < raws_.ask(raw(kind)))
      fail("the server does not send all of " + kind.title);
  }

  static std::string raw(const Kind &kind) { return "/" + std::to_string(kind.first); }
  /// raw_once names the raw variant that is asked as the first request after a change is: once, after the same pause,
  /// so that the pages and the processor's caches are as cold.
  static std::string raw_once(const Kind &kind) { return raw(kind) + " once"; }

  void add_raw(const Kind &kind) {
    rounds_.add(raw(kind), [this, &kind] {
      raws_.connect();
      return cost_of_work(stage_.raw().pid(), [&] { raws_.ask(raw(kind)); });
    });
  }

  void add(const Kind &kind) {
    check_size(kind);
    add_raw(kind);
    rounds_.add(raw_once(kind), [this, &kind] {
      stage_.touch();
      raws_.connect();
      return cost_of_single_work(stage_.raw().pid(), [&] { raws_.ask(raw(kind)); });
    });
    rounds_.add(kind.name + " first", [this, &kind] {
      stage_.touch();
      ours_.connect();
      return cost_of_single_work(stage_.server().pid(), [&] { ours_.ask(kind.target); });
    });
    rounds_.add(kind.name, [this, &kind] {
      ours_.connect();
      return cost_of_work(stage_.server().pid(), [&] { ours_.ask(kind.target); });
    });
    if (nginx_) add_nginx(kind);
    if (slapd_) add_slapd(kind);
  }

  void add_nginx(const Kind &kind) {
    rounds_.add("nginx " + kind.name, [this, &kind] {
      nginxs_->connect();
      return cost_of_work(nginx_->pid(), [&] { nginxs_->ask("/" + kind.name); });
    });
  }

  void add_slapd(const Kind &kind) {
    rounds_.add("slapd " + kind.name, [this, &kind] {
      return cost_of_work(slapd_->pid(), [&] {
        if (slapds_->ask(kind.search) != stage_.records() - kind.first)
          fail("slapd does not send all of " + kind.title);
      });
    });
  }

  void add_eight(const Kind &kind) {
    add_raw(kind);
    rounds_.add("eight", [this, &kind] { return ask_eight(stage_.server().pid(), stage_.port(), kind.target); });
    if (nginx_)
      rounds_.add("nginx eight", [this, &kind] { return ask_eight(nginx_->pid(), nginx_->port(), "/" + kind.name); });
  }

  /// row returns the row of a variant, beside the peers of a kind.
  Row row(const std::string &title, const std::string &variant, const std::string &raw,
          const std::string &peers) const {
    return {title,
            duration(*rounds_.seconds(variant)) + ", CPU " + duration(*rounds_.cpu(variant)),
            rounds_.ratio(variant, raw),
            rounds_.ratio(variant, "nginx " + peers),
            rounds_.ratio(variant, "slapd " + peers),
            {}};
  }

  void add_rows(const Kind &kind, Sizes &sizes, std::vector<Row> &all) const {
    Row first = row(kind.title + ", first after a change", kind.name + " first", raw_once(kind), kind.name);
    first.limits.push_back(at_most(first.raw, kind.limit_first, " x raw"));
    Row unchanged = row(kind.title + ", unchanged", kind.name, raw(kind), kind.name);
    unchanged.limits.push_back(at_most(unchanged.raw, kind.limit_unchanged, " x raw"));
    if (kind.name == "harvest") {
      unchanged.limits.push_back(at_most(unchanged.nginx, 1.3, " x nginx"));
      limit_rate(unchanged, sizes);
    }
    all.push_back(std::move(first));
    all.push_back(std::move(unchanged));
  }

  /// limit_rate compares descriptions per second with those of a catalog of the size of reference.
  void limit_rate(Row &row, Sizes &sizes) const {
    const double rate = static_cast<double>(stage_.records()) / *rounds_.seconds("harvest");
    if (const auto reference = sizes.against_reference("harvest", stage_.records(), rate))
      row.limits.push_back(at_least(rate / *reference, 0.8, " of the rate at 20,000"));
  }

  void add_row_of_eight(std::vector<Row> &all) const {
    Row eight = row("eight clients at once, an answer", "eight", raw(kinds_.front()), "eight");
    eight.limits.push_back(at_most(eight.raw, 0.3, " x raw"));
    all.push_back(std::move(eight));
  }

  const Stage &stage_;
  Reader ours_, raws_;
  std::optional<Nginx> nginx_;
  std::optional<Reader> nginxs_;
  std::optional<SlapdDirectory> directory_;
  std::optional<Slapd> slapd_;
  std::optional<LdapReader> slapds_;
  const std::vector<Kind> kinds_;
  Rounds rounds_;
};

}  // namespace

std::vector<Row> reading_rows(const Stage &stage, Sizes &sizes) {
  const auto wanted = {"harvest", "since", "attribute", "eight"};
  if (std::none_of(wanted.begin(), wanted.end(), [&](const char *row) { return stage.options().wants(row); }))
    return {};
  return Readings(stage).rows(sizes);
}

}  // namespace rdm::bench
