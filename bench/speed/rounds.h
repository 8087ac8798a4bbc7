// SPDX-License-Identifier: MIT
/// Variants of one work that are measured by turns, so that other work on the machine slows all of them alike.
#ifndef BENCH_SPEED_ROUNDS_H
#define BENCH_SPEED_ROUNDS_H

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace rdm::bench {

/// Cost is what one answer or one command takes: time on the clock, and CPU time of the processes that do the work.
struct Cost {
  double seconds = 0, cpu = 0;
};

/// Rounds measures each variant once in each round, in the order in which they were added.
class Rounds {
 public:
  using Measure = std::function<Cost()>;

  /// add adds a variant, unless there is one of this name.
  void add(const std::string &name, Measure measure);
  void run(unsigned rounds);

  /// seconds and cpu return medians over the rounds; nothing for a variant that was not added.
  std::optional<double> seconds(const std::string &name) const;
  std::optional<double> cpu(const std::string &name) const;
  /// ratio returns the median of what `name` cost, in each round, relative to `base` in the same round; nothing if one
  /// of them was not added.
  std::optional<double> ratio(const std::string &name, const std::string &base,
                              double Cost::*what = &Cost::seconds) const;

 private:
  struct Variant {
    std::string name;
    Measure measure;
    std::vector<Cost> costs;
  };
  const Variant *find(const std::string &name) const;
  std::optional<double> median_of(const std::string &name, double Cost::*what) const;

  std::vector<Variant> variants_;
};

}  // namespace rdm::bench

#endif
