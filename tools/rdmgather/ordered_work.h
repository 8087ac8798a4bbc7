// SPDX-License-Identifier: MIT
/// Work on many items in parallel, whose results are used in order.
#ifndef RDMGATHER_ORDERED_WORK_H
#define RDMGATHER_ORDERED_WORK_H

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace rdm::gather {

/// OrderedWork runs threads. They hold at most `window` results that were not used, so that memory does not grow with
/// the number of items.
template <typename Result>
class OrderedWork {
 public:
  /// Make returns the procedure of a thread, which returns the result of an item. The procedure does not throw.
  using Procedure = std::function<Result(size_t item)>;
  using Make = std::function<Procedure()>;

  /// OrderedWork begins with the items from 0 to `count`. Throws what `make` throws, before any thread is started.
  OrderedWork(size_t count, size_t threads, const Make &make) : count_(count), results_(window) {
    std::vector<Procedure> procedures;
    for (size_t i = 0; i < std::min(threads, count); ++i) procedures.push_back(make());
    for (Procedure &procedure : procedures)
      crew_.threads.emplace_back([this, work = std::move(procedure)] { run(work); });
  }
  OrderedWork(const OrderedWork &) = delete;
  OrderedWork &operator=(const OrderedWork &) = delete;
  /// The destructor waits for the items in work, and leaves out those after them.
  ~OrderedWork() {
    {
      const std::lock_guard lock(mutex_);
      is_stopped_ = true;
    }
    changed_.notify_all();
  }

  /// next waits for the result of the next item. Call it once for each item.
  Result next() {
    std::unique_lock lock(mutex_);
    std::optional<Result> &place = results_[used_ % window];
    changed_.wait(lock, [&] { return place.has_value(); });
    Result result = std::move(*place);
    place.reset();
    ++used_;
    lock.unlock();
    changed_.notify_all();
    return result;
  }

 private:
  static constexpr size_t window = 1024;

  /// Crew is a member, so that threads also end if the constructor cannot start all.
  struct Crew {
    explicit Crew(OrderedWork &its_work) : work(its_work) {}
    Crew(const Crew &) = delete;
    Crew &operator=(const Crew &) = delete;
    ~Crew() { work.stop(); }
    OrderedWork &work;
    std::vector<std::jthread> threads;
  };

  void stop() {
    {
      const std::lock_guard lock(mutex_);
      is_stopped_ = true;
    }
    changed_.notify_all();
  }

  void run(const Procedure &work) {
    while (const std::optional<size_t> item = begin()) {
      Result result = work(*item);
      {
        const std::lock_guard lock(mutex_);
        results_[*item % window] = std::move(result);
      }
      changed_.notify_all();
    }
  }

  std::optional<size_t> begin() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return is_stopped_ || begun_ == count_ || begun_ < used_ + window; });
    if (is_stopped_ || begun_ == count_) return std::nullopt;
    return begun_++;
  }

  const size_t count_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::optional<Result>> results_;
  size_t begun_ = 0, used_ = 0;
  bool is_stopped_ = false;
  Crew crew_{*this};  // last: ends first
};

}  // namespace rdm::gather

#endif
