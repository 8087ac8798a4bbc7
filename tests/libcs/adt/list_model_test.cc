// SPDX-License-Identifier: MIT
/// Random operations on lists and on a deque that models what cslist_prepend does to the tail.
#include <deque>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/adt.h>

#include "support/diagnostics.h"
#include "support/memory_host.h"
#include "support/model.h"
#include "tracked_items.h"

using namespace rdm;

namespace {

using support::same;

enum class Kind { append, prepend, behead, remove, find, apply, compare_by_letter, compare_by_text };

struct Operation {
  Kind kind = Kind::append;
  int text = 0;  // of item_texts; one more is null
  bool out_of_memory = false;
};

const char *text_of(const Operation &operation) {
  return operation.text < item_text_count ? item_texts[operation.text] : nullptr;
}

[[maybe_unused]] void showValue(const Operation &operation, std::ostream &out) {
  static const char *const names[] = {"append", "prepend", "behead", "remove", "find", "apply", "compare", "compare"};
  out << names[static_cast<size_t>(operation.kind)];
  if (operation.kind == Kind::compare_by_letter) out << " by letter";
  if (operation.kind == Kind::compare_by_text) out << " by text";
  const bool has_text = operation.kind <= Kind::find && operation.kind != Kind::behead;
  if (has_text) out << '(' << (text_of(operation) != nullptr ? text_of(operation) : "null") << ')';
  if (operation.out_of_memory) out << " without memory";
}

rc::Gen<Operation> operations() {
  const auto kinds = rc::gen::weightedElement<Kind>({{6, Kind::append},
                                                     {2, Kind::prepend},
                                                     {3, Kind::behead},
                                                     {4, Kind::remove},
                                                     {2, Kind::find},
                                                     {1, Kind::apply},
                                                     {1, Kind::compare_by_letter},
                                                     {1, Kind::compare_by_text}});
  return rc::gen::build<Operation>(
      rc::gen::set(&Operation::kind, kinds),
      rc::gen::set(&Operation::text, rc::gen::resize(100, rc::gen::inRange(0, item_text_count + 1))),
      rc::gen::set(&Operation::out_of_memory, rc::gen::weightedElement<bool>({{15, false}, {1, true}})));
}

/// The expected list: the linked items and the position of the tail.
struct Model {
  enum class Tail { none, last, out_of_reach };

  uint32_t append(const char *text, bool out_of_memory) {
    if (text == nullptr || out_of_memory) return 1;
    ++count;
    held.insert(next_label(text));
    if (!chain.empty() && tail == Tail::out_of_reach) return 0;
    chain.push_back(next_label(text));
    tail = Tail::last;
    return 0;
  }
  uint32_t prepend(const char *text, bool out_of_memory) {
    if (text == nullptr || out_of_memory) return 1;
    ++count;
    held.insert(next_label(text));
    if (chain.size() == 1 && tail == Tail::last) tail = Tail::out_of_reach;
    if (!chain.empty()) chain.pop_front();
    chain.push_front(next_label(text));
    return 0;
  }
  std::string behead() {
    if (chain.empty()) return "null";
    std::string first = chain.front();
    chain.pop_front();
    if (chain.empty()) tail = Tail::none;
    --count;
    return first;
  }
  uint32_t remove(const char *key) {
    const size_t at = index_of(key);
    if (at == chain.size()) return 1;
    held.erase(chain[at]);
    if (at + 1 == chain.size() && tail == Tail::last && at == 0) tail = Tail::none;
    chain.erase(chain.begin() + static_cast<std::ptrdiff_t>(at));
    --count;
    return 0;
  }
  std::string find(const char *key) const {
    const size_t at = index_of(key);
    return at == chain.size() ? "null" : chain[at];
  }
  size_t index_of(const char *key) const {
    size_t at = 0;
    while (at < chain.size() && (key == nullptr || !matches(chain[at], key, by_letter))) ++at;
    return at;
  }

  std::deque<std::string> chain;
  Tail tail = Tail::none;
  int32_t count = 0;
  std::multiset<std::string> held;  // copied and not released, nulls included
  bool by_letter = false;
};

std::vector<std::string> seen;
void note_seen(void *item) { seen.push_back(label(item)); }

class Case {
 public:
  Case() {
    tracked_items() = {};
    cslist_create(&list_);
    cslist_set_copy(list_, copy_tracked);
    cslist_set_free(list_, release_tracked);
    cslist_set_compare(list_, compare_texts);
  }
  Case(const Case &) = delete;
  Case &operator=(const Case &) = delete;
  ~Case() {
    if (list_ != nullptr) cslist_do_free(list_, 1);
    for (cslist_node *node : out_of_reach_) host_free(node);
  }

  void apply(const Operation &operation) {
    support::HostRecord &host = support::host_record();
    if (operation.out_of_memory) host.fail_allocation = host.allocations + 1;
    perform(operation);
    host.fail_allocation = 0;
    compare();
  }

  /// end releases the list and compares the released items and the warning about missing nodes.
  void end(bool free_items) {
    const auto missing = model_.count - static_cast<int32_t>(model_.chain.size());
    int nulls = 0;
    for (const std::string &name : model_.chain) {
      if (name == "null") ++nulls;
      if (free_items) model_.held.erase(model_.held.find(name));
    }
    same("free", cslist_do_free(list_, free_items ? 1 : 0), 0u);
    list_ = nullptr;
    same("nulls released", tracked_items().nulls_released, free_items ? nulls : 0);
    same("log", log_.text(),
         missing == 0 ? "" : "WARNING: Unknown " + std::to_string(missing) + " items on linked list?\n");
    compare_items();
    same("blocks", support::host_record().live_blocks, static_cast<long>(out_of_reach_.size()));
  }

 private:
  void perform(const Operation &operation) {
    const char *text = text_of(operation);
    switch (operation.kind) {
      case Kind::append:
        append(text, operation.out_of_memory);
        break;
      case Kind::prepend:
        prepend(text, operation.out_of_memory);
        break;
      case Kind::behead: {
        void *item = cslist_behead(list_);
        same("behead", label(item), model_.behead());
        give_away(item);
        break;
      }
      case Kind::remove:
        same("remove", cslist_delete(list_, text), model_.remove(text));
        break;
      case Kind::find:
        same("find", label(cslist_find(list_, text)), model_.find(text));
        break;
      case Kind::apply: {
        std::vector<std::string> expected(model_.chain.begin(), model_.chain.end());
        std::erase(expected, "null");
        seen.clear();
        cslist_apply(list_, note_seen);
        same("apply", seen, expected);
        break;
      }
      case Kind::compare_by_letter:
      case Kind::compare_by_text:
        model_.by_letter = operation.kind == Kind::compare_by_letter;
        same("compare", cslist_set_compare(list_, model_.by_letter ? compare_letter : compare_texts), 0u);
    }
  }

  void append(const char *text, bool out_of_memory) {
    const cslist_node *const before = list_->tail;
    const bool is_lost = !model_.chain.empty() && model_.tail == Model::Tail::out_of_reach;
    const uint32_t expected = model_.append(text, out_of_memory);
    same("append", cslist_append(list_, text), expected);
    if (is_lost && list_->tail != before) out_of_reach_.push_back(list_->tail);
  }

  void prepend(const char *text, bool out_of_memory) {
    cslist_node *const before = list_->head;
    const uint32_t expected = model_.prepend(text, out_of_memory);
    same("prepend", cslist_prepend(list_, text), expected);
    if (before != nullptr && list_->head != before) out_of_reach_.push_back(before);
  }

  /// give_away releases an item that the list returned to its caller.
  void give_away(void *item) {
    const auto at = model_.held.find(label(item));
    if (item == nullptr || at == model_.held.end()) return;
    model_.held.erase(at);
    release_tracked(item);
  }

  void compare() {
    std::deque<std::string> chain;
    const cslist_node *last = nullptr;
    for (const cslist_node *node = list_->head; node != nullptr; node = node->next) {
      chain.push_back(label(node->data));
      last = node;
    }
    same("items", chain, model_.chain);
    same("nodes", cslist_count(list_), static_cast<int32_t>(model_.chain.size()));
    same("count", list_->count, model_.count);
    same("is there a tail", list_->tail != nullptr, model_.tail != Model::Tail::none);
    if (last != nullptr) same("is the tail the last node", list_->tail == last, model_.tail == Model::Tail::last);
    compare_items();
  }

  /// compare_items compares the items that were copied and not released, without nulls.
  void compare_items() {
    std::multiset<std::string> held = model_.held, live;
    held.erase("null");
    for (const auto &[serial, item] : tracked_items().live) live.insert(label(item.get()));
    same("items not released", live, held);
  }

  support::Diagnostics log_;
  cslist *list_ = nullptr;
  Model model_;
  std::vector<cslist_node *> out_of_reach_;
};

class ListModel : public support::HostTest {};

TEST_F(ListModel, AnyOrderOfOperations) {
  support::check_model(500, [] {
    const auto list = *rc::gen::container<std::vector<Operation>>(operations()).as("operations");
    const bool free_items = *rc::gen::arbitrary<bool>().as("free the items");
    Case test;
    for (const Operation &operation : list) test.apply(operation);
    test.end(free_items);
  });
}

}  // namespace
