// SPDX-License-Identifier: MIT
/// Random questions to a catalog that changes in every way, in place too: the handler, which keeps the catalog open,
/// must reply as the exported procedures do, which open it each time. So must one whose host sends slices.
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>

#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "dba/guard.h"
#include "service/support/catalog.h"
#include "service/support/question.h"
#include "service/support/sending.h"
#include "support/database.h"
#include "support/memory_host.h"
#include "support/model.h"

using namespace rdm;

namespace {

using support::soif;

enum class Kind { put, erase, index, cut_index, spoil_index, flip, cut, remove, restore, ask };

struct Operation {
  Kind kind = Kind::ask;
  uint32_t number = 1;     // of a description; also chooses among lists
  uint32_t choice = 0;     // of a record, a scope, a byte
  bool by_rename = false;  // otherwise in place
};

constexpr uint32_t numbers = 24;

std::string date(uint32_t time) {
  char text[64];
  cs_time2str(time, text, sizeof text);
  return text;
}

const std::vector<std::string> &records() {
  static const std::vector<std::string> all = {
      soif("DOCUMENT", "http://localhost/1", {{"title", "A title"}, {"author-1", "A"}, {"author-2", "B"}}),
      soif("DOCUMENT", "http://localhost/2", {{"author", "C"}, {"author-12", "D"}, {"body", std::string(5000, 'x')}}),
      soif("FILE", "u", {}),
      soif("FILE", "u", {{"title", ""}, {"author", "E"}}),
      soif("FILE", "u", {{"Title", "F"}, {"AUTHOR-1", "G"}}),
      soif("FILE", "u", {{"title", "}\n{3}:\t@"}, {"title", "twice"}}),
      soif("FILE", "u", {{"big", std::string(100000, 'b')}, {"title", "H"}}),
      "  before " + soif("FILE", "u", {{"title", "I"}}) + "\n after\n",
      "@FILE { u\ntitle{3}:\tcut",
      "@FILE { u\ntitle{30}:\tpadded",
      "@FILE { u\ntitle{300000}:\ttoo far",
      "@FILE { u\ntitle{+3}:\tsix\n}\n",
      "@FILE{ u\ntitle{3}: no tab\n}\n",
      "@FILE u title{1}:\tJ b{1}:\tK }",
      "no object",
      "",
      soif("DOCUMENT", "http://localhost/3", {{"x", "1"}, {"y", "2"}, {"z", "3"}, {"title", "L"}, {"w", "4"}}),
  };
  return all;
}

const char *const scopes[] = {"all", "since", "", ""};
const char *const hit_limits[] = {"", "", "", "1", "3", "0", "-1", "100"};
const char *const lists_of_names[] = {"",        "",       "title", "author", "AUTHOR", "title,author-1",
                                      "nothing", "b,x,,z", "body"};

[[maybe_unused]] void showValue(const Operation &operation, std::ostream &out) {
  static const char *const kinds[] = {"put",  "erase", "index",  "cut index", "spoil index",
                                      "flip", "cut",   "remove", "restore",   "ask"};
  out << kinds[static_cast<size_t>(operation.kind)] << '(' << operation.number << ", " << operation.choice
      << (operation.by_rename ? ", by rename)" : ")");
}

rc::Gen<Operation> operations() {
  const auto kinds = rc::gen::weightedElement<Kind>({{8, Kind::put},
                                                     {2, Kind::erase},
                                                     {4, Kind::index},
                                                     {1, Kind::cut_index},
                                                     {1, Kind::spoil_index},
                                                     {2, Kind::flip},
                                                     {1, Kind::cut},
                                                     {1, Kind::remove},
                                                     {3, Kind::restore},
                                                     {12, Kind::ask}});
  return rc::gen::build<Operation>(
      rc::gen::set(&Operation::kind, kinds),
      rc::gen::set(&Operation::number, rc::gen::resize(100, rc::gen::inRange<uint32_t>(0, numbers + 2))),
      rc::gen::set(&Operation::choice, rc::gen::resize(100, rc::gen::inRange<uint32_t>(0, 100000))),
      rc::gen::set(&Operation::by_rename, rc::gen::arbitrary<bool>()));
}

/// Case applies operations to the files of one catalog.
class Case {
 public:
  Case() {
    for (uint32_t number = 1; number <= numbers; number += 2)
      catalog_.put(number, records()[number % records().size()]);
    write_index(numbers, 0);
    sound_ = support::read_file(path());
  }

  void apply(const Operation &operation) {
    if (operation.kind == Kind::ask) return ask(operation);
    change(operation);
    ask({Kind::ask, operation.choice, operation.number, false});
  }
  void end() { ask({}); }

 private:
  std::string path() const { return catalog_.path(); }
  std::string index_path() const { return catalog_.path() + ".idx"; }

  void change(const Operation &operation) {
    switch (operation.kind) {
      case Kind::put:
      case Kind::erase:
        return edit(operation);
      case Kind::index:
        return write_index(operation.number, operation.choice);
      case Kind::cut_index:
        return cut(index_path(), operation.choice % 600);
      case Kind::spoil_index:
        return flip(index_path(), operation.choice % 300);
      case Kind::flip:
        return flip(path(), operation.choice);
      case Kind::cut:
        return cut(path(), operation.choice);
      case Kind::remove:
        std::filesystem::remove(operation.by_rename ? path() : index_path());
        return;
      case Kind::restore:
      case Kind::ask:
        return replace(path(), sound_);
    }
  }

  /// edit puts or erases a record, in the file or in a copy that is renamed. A damaged file is restored before.
  void edit(const Operation &operation) {
    replace(path(), sound_);
    const std::string file = operation.by_rename ? path() + ".new" : path();
    if (operation.by_rename) support::write_file(file, sound_);
    char key[9];
    std::snprintf(key, sizeof key, "%08x", operation.number);
    {
      const DatabasePtr database(dba_open(file.c_str(), "w"));
      if (operation.kind == Kind::put)
        support::put_record(database.get(), key, records()[operation.choice % records().size()]);
      else
        dba_del(database.get(), std::array{support::dbt_of(key)}.data());
    }
    if (operation.by_rename) std::filesystem::rename(file, path());
    sound_ = support::read_file(path());
    mark(path());
  }

  /// write_index writes some entries, some of them twice, others without a record.
  void write_index(uint32_t count, uint32_t choice) {
    std::vector<std::pair<uint32_t, uint32_t>> entries;
    for (uint32_t i = 0; i < count; ++i) entries.emplace_back(100 * (i - i % (1 + choice % 3)), 1 + i % (numbers - 1));
    catalog_.index(entries);
    mark(index_path());
  }

  void replace(const std::string &file, const std::string &bytes) {
    support::write_file(file, bytes);
    mark(file);
  }
  void cut(const std::string &file, uint64_t size) {
    if (!std::filesystem::exists(file)) return;
    std::filesystem::resize_file(file, size % (std::filesystem::file_size(file) + 1));
    mark(file);
  }
  void flip(const std::string &file, size_t at) {
    if (!std::filesystem::exists(file)) return;
    std::string bytes = support::read_file(file);
    if (bytes.empty()) return;
    char &byte = bytes[at % bytes.size()];
    byte = static_cast<char>(byte ^ (1 << at % 8));
    replace(file, bytes);
  }

  /// mark gives a file a time of change of its own: a kernel may count time in steps of ten milliseconds.
  void mark(const std::string &file) {
    const timespec time{++marks_, 1};
    const timespec times[] = {time, time};
    ::utimensat(AT_FDCWD, file.c_str(), times, 0);
  }

  static void ask(const Operation &operation) {
    const std::string scope = scopes[operation.number % 4];
    const support::Question question{scope == "all" ? scope : "since " + date(operation.choice % 2500),
                                     hit_limits[operation.choice % 8], lists_of_names[operation.number % 9]};
    const support::Reply right = step_by_step(question);
    support::same("the reply", handled(question), right);
    support::same("the reply of an open catalog", handled(question), right);
    qxapi_bind_slices(support::send_slice);
    support::same("the reply in slices", handled(question), right);
    support::same("the reply in slices of what is known", handled(question), right);
    qxapi_bind_slices(nullptr);
  }

  support::TemporaryDirectory directory_;
  support::Catalog catalog_{directory_};
  support::Registry registry_{directory_, "csid=\"c\" catalog-database=\"" + catalog_.path() + "\"\n"};
  std::string sound_;
  time_t marks_ = 1000000;
};

class RequestModel : public support::HostTest {
 private:
  support::Hour hour_;
  support::SendingLimits limits_{200, 1};
};

TEST_F(RequestModel, RepliesAsIfItOpenedTheCatalogForEachRequest) { support::check_operations<Case>(60, operations()); }

}  // namespace
