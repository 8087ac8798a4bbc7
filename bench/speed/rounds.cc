// SPDX-License-Identifier: MIT
#include "speed/rounds.h"

#include <algorithm>
#include <cstddef>

#include "median.h"

namespace rdm::bench {

void Rounds::add(const std::string &name, Measure measure) {
  if (find(name) == nullptr) variants_.push_back({name, std::move(measure), {}});
}

void Rounds::run(unsigned rounds) {
  for (unsigned round = 0; round < rounds; ++round)
    for (Variant &variant : variants_) variant.costs.push_back(variant.measure());
}

std::optional<double> Rounds::seconds(const std::string &name) const { return median_of(name, &Cost::seconds); }

std::optional<double> Rounds::cpu(const std::string &name) const { return median_of(name, &Cost::cpu); }

std::optional<double> Rounds::ratio(const std::string &name, const std::string &base, double Cost::*what) const {
  const Variant *const a = find(name), *const b = find(base);
  if (a == nullptr || b == nullptr) return {};
  std::vector<double> ratios;
  for (std::size_t i = 0; i < a->costs.size(); ++i)
    if (b->costs[i].*what > 0) ratios.push_back(a->costs[i].*what / b->costs[i].*what);
  return ratios.empty() ? std::optional<double>() : median(std::move(ratios));
}

const Rounds::Variant *Rounds::find(const std::string &name) const {
  const auto found = std::find_if(variants_.begin(), variants_.end(), [&](const Variant &v) { return v.name == name; });
  return found == variants_.end() ? nullptr : &*found;
}

std::optional<double> Rounds::median_of(const std::string &name, double Cost::*what) const {
  const Variant *const variant = find(name);
  if (variant == nullptr) return {};
  std::vector<double> values;
  for (const Cost &cost : variant->costs) values.push_back(cost.*what);
  return median(std::move(values));
}

}  // namespace rdm::bench
