// SPDX-License-Identifier: MIT
#include <ctime>
#include <memory>
#include <ostream>

#include "catalog/os/error.h"
#include "catalog/record.h"
#include "tools/common/time_text.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/describe.h"
#include "tools/minidba/selection.h"
#include "tools/minidba/verbs/verbs.h"

namespace rdm::minidba {
namespace {

/// Listing writes descriptions in one format.
class Listing {
 public:
  virtual ~Listing() = default;
  virtual void add(uint32_t number, const std::string &record, const SOIF *object) = 0;
  virtual void close() {}
};

class SoifListing : public Listing {
 public:
  SoifListing(std::ostream &out, bool whole) : out_(out), whole_(whole) {}
  void add(uint32_t, const std::string &record, const SOIF *object) override {
    out_ << (whole_ ? record : print(object));
  }

 private:
  std::ostream &out_;
  bool whole_;
};

class JsonListing : public Listing {
 public:
  explicit JsonListing(std::ostream &out) : list_(out) {}
  void add(uint32_t number, const std::string &, const SOIF *object) override { list_.add(json_of(number, object)); }
  void close() override { list_.close(); }

 private:
  JsonList list_;
};

class TsvListing : public Listing {
 public:
  TsvListing(std::ostream &out, std::vector<std::string> attributes) : out_(out), attributes_(std::move(attributes)) {
    if (attributes_.empty()) attributes_ = {"rd-last-changed", "title"};
  }
  void add(uint32_t number, const std::string &, const SOIF *object) override {
    out_ << tsv_of(number, object, attributes_) << '\n';
  }

 private:
  std::ostream &out_;
  std::vector<std::string> attributes_;
};

std::unique_ptr<Listing> listing(const Options &options, std::ostream &out) {
  if (options.json || options.format == "json") return std::make_unique<JsonListing>(out);
  if (options.format == "tsv") return std::make_unique<TsvListing>(out, options.attributes);
  return std::make_unique<SoifListing>(out, options.attributes.empty());
}

time_t since(const Options &options) try {
  return options.since.empty() ? 0 : tools::read_time(options.since, std::time(nullptr));
} catch (const Failure &failure) {
  throw Failure(std::string("--since: ") + failure.what());
}

/// chosen returns the numbers of the descriptions to list, ascending.
std::vector<uint32_t> chosen(const Catalog &catalog, time_t since, Progress &progress) {
  return numbers_where(catalog, progress, [&](uint32_t number, std::string_view record) {
    return since == 0 || read_outline(catalog, number, record).change_time >= since;
  });
}

/// viewed returns a description with the attributes to show.
SoifPtr viewed(const Catalog &catalog, uint32_t number, const std::string &record, const Options &options) {
  return options.attributes.empty() ? parse_record(catalog, number, record)
                                    : parse_attributes(catalog, number, record, options.attributes);
}

}  // namespace

int list(const Options &options, const Console &console) {
  const time_t first = since(options);
  const Catalog catalog = open_to_read(options, console);
  const std::unique_ptr<Listing> listing = minidba::listing(options, console.out);
  Progress progress(console, "listing");
  const std::vector<uint32_t> numbers = chosen(catalog, first, progress);
  progress.clear();
  for (const uint32_t number : numbers) {
    const std::string record = catalog.get(number).value_or("");
    listing->add(number, record, viewed(catalog, number, record, options).get());
    if (!console.out_is_screen) progress.advance(0, static_cast<int64_t>(record.size()));
  }
  listing->close();
  return status_of_work(catalog);
}

}  // namespace rdm::minidba
