// SPDX-License-Identifier: MIT
/// Random operations on parameter blocks and on a vector of pairs that is searched linearly.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "qxapi/guard.h"
#include "qxapi/records.h"
#include "support/memory_host.h"
#include "support/model.h"

using namespace rdm;

namespace {

using support::same;
using Pairs = std::vector<std::pair<std::string, std::string>>;

/// Enough names that blocks get an index, and few enough that many are equal.
constexpr int name_count = 24;

enum class Kind { add, remove, set, rename };

struct Operation {
  Kind kind = Kind::add;
  int name = 0, other = 0;
  bool out_of_memory = false;
};

std::string name_of(int number) { return number == 0 ? "" : "name " + std::to_string(number); }

[[maybe_unused]] void showValue(const Operation &operation, std::ostream &out) {
  static const char *const kinds[] = {"add", "remove", "set", "rename"};
  out << kinds[static_cast<size_t>(operation.kind)] << '(' << operation.name << ", " << operation.other << ')';
  if (operation.out_of_memory) out << " without memory";
}

rc::Gen<Operation> operations() {
  const auto kinds =
      rc::gen::weightedElement<Kind>({{8, Kind::add}, {3, Kind::remove}, {1, Kind::set}, {1, Kind::rename}});
  const auto names = rc::gen::resize(100, rc::gen::inRange(0, name_count));
  return rc::gen::build<Operation>(
      rc::gen::set(&Operation::kind, kinds), rc::gen::set(&Operation::name, names),
      rc::gen::set(&Operation::other, names),
      rc::gen::set(&Operation::out_of_memory, rc::gen::weightedElement<bool>({{15, false}, {1, true}})));
}

/// replace replaces a text of a pair that stays in its block.
void replace(char *&text, const std::string &value) {
  host_free(text);
  text = host_strdup(value.c_str());
}

class Case {
 public:
  void apply(const Operation &operation) {
    const std::string name = name_of(operation.name), other = name_of(operation.other);
    if (operation.kind == Kind::add)
      add(name, "value " + std::to_string(++values_), operation.out_of_memory);
    else if (operation.kind == Kind::remove)
      remove(name);
    else
      change(name, other, operation.kind == Kind::rename);
    compare();
  }

  void end() {
    block_.reset();
    same("blocks", support::host_record().live_blocks, 0L);
  }

 private:
  Pairs::iterator first_of(const std::string &name) {
    return std::find_if(model_.begin(), model_.end(), [&](const auto &pair) { return pair.first == name; });
  }

  /// add may refuse one allocation. A pair that does not fit the block's room needs three; one more is the index's,
  /// which the list can replace.
  void add(const std::string &name, const std::string &value, bool out_of_memory) {
    support::HostRecord &host = support::host_record();
    const int refused = values_ % 4 + 1;
    if (out_of_memory) host.fail_allocation = host.allocations + refused;
    const bool is_added = !out_of_memory || refused == 4 || block_->has_room(size_in_room(name, value));
    same("add", host_param_add(name.c_str(), value.c_str(), block_.get()), is_added ? 0 : -1);
    host.fail_allocation = 0;
    if (is_added) model_.emplace_back(name, value);
  }

  void remove(const std::string &name) {
    const ParamPtr removed(host_param_find_entry(name.c_str(), block_.get(), 1));
    const auto expected = first_of(name);
    same("removed", removed != nullptr, expected != model_.end());
    if (!removed) return;
    same("value", std::string(removed->value), expected->second);
    same("next", removed->next, static_cast<host_param *>(nullptr));
    model_.erase(expected);
  }

  void change(const std::string &name, const std::string &other, bool renames) {
    host_param *pair = host_param_find_entry(name.c_str(), block_.get(), 0);
    const auto expected = first_of(name);
    same("found", pair != nullptr, expected != model_.end());
    if (pair == nullptr) return;
    replace(renames ? pair->name : pair->value, other);
    (renames ? expected->first : expected->second) = other;
  }

  void compare() {
    Pairs held;
    for (const host_param *pair = block_->first; pair != nullptr; pair = pair->next)
      held.emplace_back(pair->name, pair->value);
    same("pairs", held, model_);
    for (int i = 0; i < name_count; ++i) {
      const char *value = host_param_find(name_of(i).c_str(), block_.get());
      const auto expected = first_of(name_of(i));
      same("found", value != nullptr ? value : "(none)", expected != model_.end() ? expected->second : "(none)");
    }
  }

  PblockPtr block_{host_param_create(7)};
  Pairs model_;
  int values_ = 0;
};

class ParameterModel : public support::HostTest {};

TEST_F(ParameterModel, AnyOrderOfOperations) { support::check_operations<Case>(500, operations()); }

}  // namespace
