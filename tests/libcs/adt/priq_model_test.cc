// SPDX-License-Identifier: MIT
/// Random operations on priority queues and on a map of deques.
#include <climits>
#include <deque>
#include <map>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/adt.h>

#include "support/diagnostics.h"
#include "support/memory_host.h"
#include "support/model.h"

using namespace rdm;

namespace {

using support::same;

enum class Kind { put, put_null, get, get_of_priority };

struct Operation {
  Kind kind = Kind::get;
  int32_t priority = 0;
  long refused = 0;  // the allocation of a put that fails, 0 for none
};

[[maybe_unused]] void showValue(const Operation &operation, std::ostream &out) {
  static const char *const names[] = {"put", "put null", "get", "get of priority"};
  out << names[static_cast<size_t>(operation.kind)];
  if (operation.kind != Kind::get) out << ' ' << operation.priority;
  if (operation.refused != 0) out << " without allocation " << operation.refused;
}

rc::Gen<Operation> operations() {
  return rc::gen::build<Operation>(
      rc::gen::set(&Operation::kind,
                   rc::gen::weightedElement<Kind>(
                       {{6, Kind::put}, {1, Kind::put_null}, {3, Kind::get}, {2, Kind::get_of_priority}})),
      rc::gen::set(&Operation::priority, rc::gen::element<int32_t>(0, 1, -1, 2, 5, INT_MIN, INT_MAX)),
      rc::gen::set(&Operation::refused, rc::gen::weightedElement<long>({{12, 0}, {1, 1}, {1, 2}, {1, 3}, {1, 4}})));
}

class Case {
 public:
  Case() { cspriq_create(&queue_); }
  Case(const Case &) = delete;
  Case &operator=(const Case &) = delete;
  ~Case() {
    if (queue_ != nullptr) cspriq_free(queue_);
  }

  void apply(const Operation &operation) {
    switch (operation.kind) {
      case Kind::put:
      case Kind::put_null:
        put(operation);
        break;
      case Kind::get:
        same("get", cspriq_get(queue_), take());
        break;
      case Kind::get_of_priority:
        same("get of priority", cspriq_getpri(queue_, operation.priority), take_of(operation.priority));
    }
    compare();
  }

  void end() {
    same("free", cspriq_free(queue_), 0u);
    queue_ = nullptr;
    same("log", log_.text(), "");
    same("blocks", support::host_record().live_blocks, 0L);
  }

 private:
  using Levels = std::map<int32_t, std::deque<void *>>;

  /// A put makes a new level with three allocations and the item's node with another one. The level stays if there is
  /// no memory for the node.
  void put(const Operation &operation) {
    support::HostRecord &host = support::host_record();
    int *const item = operation.kind == Kind::put_null ? nullptr : &items_.emplace_back();
    const long for_level = model_.contains(operation.priority) ? 0 : 3;
    const bool has_level = operation.refused == 0 || operation.refused > for_level;
    const bool is_stored = has_level && item != nullptr && operation.refused != for_level + 1;
    host.fail_allocation = operation.refused == 0 ? 0 : host.allocations + operation.refused;
    same("put", cspriq_put(queue_, item, operation.priority), is_stored ? 0u : 1u);
    host.fail_allocation = 0;
    if (has_level) model_[operation.priority];
    if (is_stored) model_[operation.priority].push_back(item);
  }

  void *take() {
    for (const auto &[priority, level] : model_)
      if (!level.empty()) return take_of(priority);
    return nullptr;
  }

  void *take_of(int32_t priority) {
    const auto level = model_.find(priority);
    if (level == model_.end() || level->second.empty()) return nullptr;
    void *const item = level->second.front();
    level->second.pop_front();
    return item;
  }

  void compare() {
    std::vector<std::pair<int32_t, std::deque<void *>>> levels;
    for (const cslist_node *node = queue_->head; node != nullptr; node = node->next) {
      const auto *level = static_cast<const cspriq_level *>(node->data);
      auto &items = levels.emplace_back(level->priority, std::deque<void *>()).second;
      for (const cslist_node *held = level->queue->head; held != nullptr; held = held->next)
        items.push_back(held->data);
    }
    same("levels", levels, std::vector<std::pair<int32_t, std::deque<void *>>>(model_.begin(), model_.end()));
    same("count", queue_->count, static_cast<int32_t>(model_.size()));
  }

  support::Diagnostics log_;
  cspriq *queue_ = nullptr;
  Levels model_;
  std::deque<int> items_;
};

class PriorityQueueModel : public support::HostTest {};

TEST_F(PriorityQueueModel, AnyOrderOfOperations) { support::check_operations<Case>(500, operations()); }

}  // namespace
