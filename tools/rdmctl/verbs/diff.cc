// SPDX-License-Identifier: MIT
#include <algorithm>
#include <ostream>

#include "catalog/catalog.h"
#include "libcs/guard.h"
#include "qxapi/escaped.h"
#include "tools/rdmctl/output.h"
#include "tools/rdmctl/target.h"
#include "tools/rdmctl/verbs/verbs.h"

namespace rdm::rdmctl {
namespace {

using catalog::Catalog;

/// Difference is a URL whose descriptions differ: '-' only in the first catalog, '+' only in the second, '~' in both.
struct Difference {
  std::string url;
  char kind;
  std::vector<std::string> attributes;  // that differ
};

using Attributes = std::vector<std::pair<std::string, std::string>>;

/// value_of returns the value of an attribute; an empty one may be null.
std::string value_of(const AVPair &pair) {
  return pair.value == nullptr ? "" : std::string(pair.value, static_cast<size_t>(pair.vsize));
}

/// attributes_of returns the attributes of a record in order of name and value. The template has the name "@".
Attributes attributes_of(const Catalog &catalog, uint32_t number, const std::string &record, bool with_times) {
  const SoifPtr object = parse_record(catalog, number, record);
  Attributes attributes{{"@", object->template_name}};
  for (int32_t i = 0; i < object->attrs->nbuckets; ++i)
    for (const cslist_node *node = object->attrs->buckets[i]->head; node != nullptr; node = node->next) {
      const auto &pair = *static_cast<const AVPair *>(node->data);
      if (with_times || std::string_view(pair.attribute) != "rd-last-changed")
        attributes.emplace_back(pair.attribute, value_of(pair));
    }
  std::sort(attributes.begin(), attributes.end());
  return attributes;
}

/// differing returns the names of the attributes that only one of two descriptions has, or with another value.
std::vector<std::string> differing(const Attributes &a, const Attributes &b) {
  Attributes either;
  std::set_symmetric_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(either));
  std::vector<std::string> names;
  for (const auto &[name, value] : either)
    if (names.empty() || names.back() != name) names.push_back(name);
  return names;
}

class Comparison {
 public:
  Comparison(const std::string &first, const std::string &second, bool with_times)
      : first_(first), second_(second), with_times_(with_times) {}

  /// run returns the differences in the order of the URLs.
  std::vector<Difference> run(tools::Progress &progress) {
    first_.each([&](uint32_t number, std::string_view record) {
      progress.advance(1, static_cast<int64_t>(record.size()));
      compare(number, std::string(record));
    });
    second_.each([&](uint32_t number, std::string_view record) {
      progress.advance(1, static_cast<int64_t>(record.size()));
      const std::string url(read_outline(second_, number, record).url);
      if (!first_.number_of(url)) differences_.push_back({url, '+', {}});
    });
    std::sort(differences_.begin(), differences_.end(),
              [](const Difference &a, const Difference &b) { return a.url < b.url; });
    return std::move(differences_);
  }

 private:
  void compare(uint32_t number, const std::string &record) {
    const std::string url(read_outline(first_, number, record).url);
    const std::optional<uint32_t> other = second_.number_of(url);
    if (!other) return differences_.push_back({url, '-', {}});
    const std::string changed = second_.get(*other).value_or("");
    if (record == changed) return;
    std::vector<std::string> names = differing(attributes_of(first_, number, record, with_times_),
                                               attributes_of(second_, *other, changed, with_times_));
    if (!names.empty()) differences_.push_back({url, '~', std::move(names)});
  }

  Catalog first_, second_;
  bool with_times_;
  std::vector<Difference> differences_;
};

void show_text(const std::vector<Difference> &differences, std::ostream &out) {
  for (const Difference &difference : differences) {
    out << difference.kind << ' ' << escaped(difference.url);
    const char *separator = ": ";
    for (const std::string &name : difference.attributes) {
      out << separator << escaped(name);
      separator = ", ";
    }
    out << '\n';
  }
}

void show_json(const std::vector<Difference> &differences, std::ostream &out) {
  const auto name_of = [](char kind) { return kind == '-' ? "first" : kind == '+' ? "second" : "both"; };
  const char *separator = "[";
  for (const Difference &difference : differences) {
    out << separator
        << text_of({{"url", difference.url}, {"in", name_of(difference.kind)}, {"attributes", difference.attributes}});
    separator = ",\n";
  }
  out << (differences.empty() ? "[]" : "]") << '\n';
}

}  // namespace

int diff(const Options &options, std::ostream &out, std::ostream &errors) {
  Comparison comparison(database_of(options.target, options.config), database_of(options.other, options.config),
                        options.times);
  tools::Progress progress(errors, shows_progress(options), "rdmctl: comparing");
  const std::vector<Difference> differences = comparison.run(progress);
  progress.clear();
  (options.json ? show_json : show_text)(differences, out);
  return differences.empty() ? exit_done : exit_incomplete;
}

}  // namespace rdm::rdmctl
