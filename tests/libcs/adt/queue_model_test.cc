// SPDX-License-Identifier: MIT
/// Queues under random operations, compared with a deque.
#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/adt.h>

#include "support/diagnostics.h"
#include "support/memory_host.h"
#include "support/model.h"

using namespace rdm;

namespace {

using support::same;

enum class Kind { put, put_without_memory, get, peek, remove };

/// Items differ in the first four bytes, which csqueue_delete compares, or only behind them.
constexpr const char *items[] = {"aaaa1", "aaaa2", "bbbb1", "bbbb2", "aaab1"};
constexpr size_t item_count = 5;

struct Operation {
  Kind kind = Kind::get;
  size_t item = 0;  // one more is null
};

const char *item_of(const Operation &operation) {
  return operation.item < item_count ? items[operation.item] : nullptr;
}

[[maybe_unused]] void showValue(const Operation &operation, std::ostream &out) {
  static const char *const names[] = {"put", "put without memory", "get", "peek", "remove"};
  const char *item = item_of(operation);
  out << names[static_cast<size_t>(operation.kind)];
  if (operation.kind != Kind::get && operation.kind != Kind::peek) out << ' ' << (item != nullptr ? item : "null");
}

rc::Gen<Operation> operations() {
  return rc::gen::build<Operation>(
      rc::gen::set(
          &Operation::kind,
          rc::gen::weightedElement<Kind>(
              {{6, Kind::put}, {1, Kind::put_without_memory}, {2, Kind::get}, {1, Kind::peek}, {3, Kind::remove}})),
      rc::gen::set(&Operation::item, rc::gen::element<size_t>(0, 1, 2, 3, 4, 5)));
}

class Case {
 public:
  Case() { csqueue_create(&queue_); }
  Case(const Case &) = delete;
  Case &operator=(const Case &) = delete;
  ~Case() {
    if (queue_ != nullptr) csqueue_free(queue_);
  }

  void apply(const Operation &operation) {
    char *const item = const_cast<char *>(item_of(operation));
    switch (operation.kind) {
      case Kind::put:
      case Kind::put_without_memory:
        put(item, operation.kind == Kind::put_without_memory);
        break;
      case Kind::get:
        same("get", csqueue_get(queue_), first());
        if (!model_.empty()) model_.pop_front();
        break;
      case Kind::peek:
        same("peek", csqueue_peek(queue_), first());
        break;
      case Kind::remove:
        remove(item);
    }
    compare();
  }

  void end() {
    same("free", csqueue_free(queue_), 0u);
    queue_ = nullptr;
    same("log", log_.text(), "");
    same("blocks", support::host_record().live_blocks, 0L);
  }

 private:
  void *first() const { return model_.empty() ? nullptr : model_.front(); }

  void put(char *item, bool out_of_memory) {
    support::HostRecord &host = support::host_record();
    if (out_of_memory) host.fail_allocation = host.allocations + 1;
    const bool is_stored = item != nullptr && !out_of_memory;
    same("put", csqueue_put(queue_, item), is_stored ? 0u : 1u);
    host.fail_allocation = 0;
    if (is_stored) model_.push_back(item);
  }

  void remove(const char *key) {
    const auto matches = [&](void *item) {
      return key != nullptr && std::string(static_cast<char *>(item), 4) == std::string(key, 4);
    };
    const auto at = std::find_if(model_.begin(), model_.end(), matches);
    same("remove", csqueue_delete(queue_, key), at != model_.end() ? 0u : 1u);
    if (at != model_.end()) model_.erase(at);
  }

  void compare() {
    std::deque<void *> held;
    const cslist_node *last = nullptr;
    for (const cslist_node *node = queue_->head; node != nullptr; node = node->next) {
      held.push_back(node->data);
      last = node;
    }
    same("items", held, model_);
    same("count", queue_->count, static_cast<int32_t>(model_.size()));
    same("tail", queue_->tail, last);
    same("blocks", support::host_record().live_blocks, static_cast<long>(model_.size()) + 1);
  }

  support::Diagnostics log_;
  csqueue *queue_ = nullptr;
  std::deque<void *> model_;
};

class QueueModel : public support::HostTest {};

TEST_F(QueueModel, AnyOrderOfOperations) { support::check_operations<Case>(500, operations()); }

}  // namespace
