// SPDX-License-Identifier: MIT
/// Random operations on hash tables and on an array of deques. Items may be inserted under keys that they do not match,
/// and callbacks change while there are items.
#include <algorithm>
#include <deque>
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

enum class Kind {
  insert,
  remove,
  find,
  find_by_hash,
  iterate,
  compare_by_letter,
  compare_by_text,
  hash_letter,
  hash_text
};

struct Operation {
  Kind kind = Kind::find;
  int key = 0;          // of item_texts; one more is null
  int text = 0;         // of the item
  uint32_t number = 0;  // a hash value, or the previous item of an iteration
  bool out_of_memory = false;
};

const char *text_of(int text) { return text < item_text_count ? item_texts[text] : nullptr; }
std::string quoted(int text) { return text_of(text) != nullptr ? '"' + std::string(text_of(text)) + '"' : "null"; }

[[maybe_unused]] void showValue(const Operation &operation, std::ostream &out) {
  static const char *const names[] = {"insert",  "remove",  "find", "find", "iterate",
                                      "compare", "compare", "hash", "hash"};
  out << names[static_cast<size_t>(operation.kind)];
  if (operation.kind <= Kind::iterate) out << " under " << quoted(operation.key);
  if (operation.kind == Kind::insert) out << ' ' << quoted(operation.text);
  if (operation.kind == Kind::find_by_hash) out << " by hash value " << operation.number;
  if (operation.kind == Kind::iterate) out << " from item " << operation.number;
  if (operation.kind == Kind::compare_by_letter || operation.kind == Kind::hash_letter) out << " by letter";
  if (operation.kind == Kind::compare_by_text || operation.kind == Kind::hash_text) out << " by text";
  if (operation.out_of_memory) out << " without memory";
}

rc::Gen<int> texts() { return rc::gen::resize(100, rc::gen::inRange(0, item_text_count + 1)); }

rc::Gen<Operation> operations() {
  const auto kinds = rc::gen::weightedElement<Kind>({{10, Kind::insert},
                                                     {5, Kind::remove},
                                                     {3, Kind::find},
                                                     {2, Kind::find_by_hash},
                                                     {4, Kind::iterate},
                                                     {1, Kind::compare_by_letter},
                                                     {1, Kind::compare_by_text},
                                                     {1, Kind::hash_letter},
                                                     {1, Kind::hash_text}});
  const auto any = rc::gen::build<Operation>(
      rc::gen::set(&Operation::kind, kinds), rc::gen::set(&Operation::key, texts()),
      rc::gen::set(&Operation::text, texts()),
      rc::gen::set(&Operation::number, rc::gen::resize(100, rc::gen::inRange<uint32_t>(0, 20))),
      rc::gen::set(&Operation::out_of_memory, rc::gen::weightedElement<bool>({{15, false}, {1, true}})));
  // Most items are inserted under their own text.
  return rc::gen::map(rc::gen::pair(any, rc::gen::weightedElement<bool>({{4, true}, {1, false}})),
                      [](const std::pair<Operation, bool> &made) {
                        Operation operation = made.first;
                        if (made.second) operation.text = operation.key;
                        return operation;
                      });
}

uint32_t letter_of(const void *key) {
  const auto *text = static_cast<const unsigned char *>(key);
  return text == nullptr ? 0 : *text;
}

/// The expected table: a deque of labels for each bucket, except one for which memory failed.
struct Model {
  explicit Model(int32_t wanted) : buckets(static_cast<size_t>(wanted < 1 ? 7 : wanted)) {}

  uint32_t hash(const char *key) const { return hashes_letter ? letter_of(key) : cshashtable_hf_default(key); }
  std::deque<std::string> &bucket(const char *key) { return buckets[hash(key) % buckets.size()]; }
  bool is_missing(uint32_t value) const { return missing == value % buckets.size(); }

  uint32_t insert(const char *key, const char *text, bool out_of_memory) {
    if (text == nullptr || is_missing(hash(key)) || out_of_memory) return 1;
    bucket(key).push_back(next_label(text));
    ++count;
    return 0;
  }
  uint32_t remove(const char *key) {
    std::deque<std::string> &items = bucket(key);
    const auto at = find_in(items, key);
    if (at == items.end()) return 1;
    items.erase(at);
    --count;
    return 0;
  }
  std::string find(const char *key, uint32_t value) {
    std::deque<std::string> &items = buckets[value % buckets.size()];
    const auto at = find_in(items, key);
    return at == items.end() ? "null" : *at;
  }
  std::deque<std::string>::iterator find_in(std::deque<std::string> &items, const char *key) const {
    return std::find_if(items.begin(), items.end(),
                        [&](const std::string &name) { return key != nullptr && matches(name, key, by_letter); });
  }
  /// iterate returns what follows `previous`, from the bucket of the key on.
  std::string iterate(const char *key, const std::string &previous) const {
    bool is_found = key == nullptr || previous == "null";
    for (size_t i = key == nullptr ? 0 : hash(key) % buckets.size(); i < buckets.size(); ++i)
      for (const std::string &name : buckets[i]) {
        if (is_found && name != "null") return name;
        if (name == previous) is_found = true;
      }
    return "null";
  }
  std::vector<std::string> items() const {
    std::vector<std::string> all;
    for (const auto &bucket : buckets)
      std::copy_if(bucket.begin(), bucket.end(), std::back_inserter(all),
                   [](const auto &name) { return name != "null"; });
    return all;
  }

  std::vector<std::deque<std::string>> buckets;
  size_t missing = SIZE_MAX;
  int32_t count = 0;
  bool by_letter = false, hashes_letter = false;
};

class Case {
 public:
  /// Creates a table with this many buckets; memory may fail for one of them.
  Case(int32_t buckets, bool lacks_bucket) : model_(buckets) {
    tracked_items() = {};
    support::HostRecord &host = support::host_record();
    if (lacks_bucket) {
      model_.missing = model_.buckets.size() / 2;
      host.fail_allocation = host.allocations + 3 + static_cast<long>(model_.missing);
    }
    cshashtable_create(buckets, &table_);
    host.fail_allocation = 0;
    cshashtable_set_copy(table_, copy_tracked);
    cshashtable_set_free(table_, release_tracked);
  }
  Case(const Case &) = delete;
  Case &operator=(const Case &) = delete;
  ~Case() {
    if (table_ != nullptr) cshashtable_free(table_);
  }

  void apply(const Operation &operation) {
    support::HostRecord &host = support::host_record();
    if (operation.out_of_memory) host.fail_allocation = host.allocations + 1;
    perform(operation);
    host.fail_allocation = 0;
    compare();
  }

  void end() {
    same("free", cshashtable_free(table_), 0u);
    table_ = nullptr;
    same("items not released", tracked_items().live.size(), 0u);
    same("log", log_.text(), "");
    same("blocks", support::host_record().live_blocks, 0L);
  }

 private:
  void perform(const Operation &operation) {
    const char *key = text_of(operation.key);
    switch (operation.kind) {
      case Kind::insert: {
        const uint32_t expected = model_.insert(key, text_of(operation.text), operation.out_of_memory);
        same("insert", cshashtable_insert(table_, key, text_of(operation.text)), expected);
        break;
      }
      case Kind::remove:
        same("remove", cshashtable_delete(table_, key), model_.remove(key));
        break;
      case Kind::find:
        same("find", label(cshashtable_find(table_, key)), model_.find(key, model_.hash(key)));
        break;
      case Kind::find_by_hash:
        same("find by hash value", label(cshashtable_findhv(table_, key, operation.number)),
             model_.find(key, operation.number));
        break;
      case Kind::iterate:
        iterate(key, operation.number);
        break;
      case Kind::compare_by_letter:
      case Kind::compare_by_text:
        model_.by_letter = operation.kind == Kind::compare_by_letter;
        same("compare", cshashtable_set_compare(table_, model_.by_letter ? compare_letter : compare_texts), 0u);
        break;
      case Kind::hash_letter:
      case Kind::hash_text:
        // Items stay in their buckets.
        model_.hashes_letter = operation.kind == Kind::hash_letter;
        same("hash", cshashtable_set_hash(table_, model_.hashes_letter ? letter_of : cshashtable_hf_default), 0u);
    }
  }

  /// iterate calls cshashtable_iterate with an item of the table, with an unknown item, or with null for 0.
  void iterate(const char *key, uint32_t number) {
    const std::vector<std::string> all = model_.items();
    const bool is_held = number > 0 && number <= all.size();
    const std::string previous = number == 0 ? "null" : is_held ? all[number - 1] : "unknown";
    const void *const pointer = number == 0 ? nullptr : is_held ? held(previous) : &model_;
    same("iterate", label(cshashtable_iterate(table_, key, pointer)), model_.iterate(key, previous));
  }

  static const void *held(const std::string &name) {
    for (const auto &[serial, item] : tracked_items().live)
      if (label(item.get()) == name) return item.get();
    return nullptr;
  }

  void compare() {
    for (size_t i = 0; i < model_.buckets.size(); ++i) {
      const cslist *bucket = table_->buckets[i];
      std::deque<std::string> items;
      for (const cslist_node *node = bucket == nullptr ? nullptr : bucket->head; node != nullptr; node = node->next)
        items.push_back(label(node->data));
      same("items of a bucket", items, model_.buckets[i]);
      same("is there a bucket", bucket != nullptr, i != model_.missing);
    }
    same("items not released", tracked_items().live.size(), model_.items().size());
    compare_statistics();
  }

  void compare_statistics() {
    size_t longest = 0;
    int32_t chained = 0;
    for (const auto &bucket : model_.buckets) {
      longest = std::max(longest, bucket.size());
      chained += static_cast<int32_t>(bucket.size());
    }
    cshashtable_statistics statistics;
    cshashtable_stats(table_, &statistics);
    same("items counted", statistics.items, model_.count);
    same("buckets counted", statistics.buckets, static_cast<int32_t>(model_.buckets.size()));
    same("longest bucket", statistics.longest, static_cast<uint32_t>(longest));
    same("items chained", statistics.chained, chained);
    same("mean", statistics.mean, chained / static_cast<double>(model_.buckets.size()));
    same("spread", statistics.spread, 0.0);
  }

  support::Diagnostics log_;
  cshashtable *table_ = nullptr;
  Model model_;
};

class HashTableModel : public support::HostTest {};

TEST_F(HashTableModel, AnyOrderOfOperations) {
  support::check_model(500, [] {
    const int buckets = *rc::gen::element(3, 1, 2, 0, -5, 7, 16).as("buckets");
    const bool lacks_bucket = *rc::gen::weightedElement<bool>({{5, false}, {1, true}}).as("lacks a bucket");
    const auto list = *rc::gen::container<std::vector<Operation>>(operations()).as("operations");
    Case test(buckets, lacks_bucket);
    for (const Operation &operation : list) test.apply(operation);
    test.end();
  });
}

}  // namespace
