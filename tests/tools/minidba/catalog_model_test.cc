// SPDX-License-Identifier: MIT
/// Random sequences of verbs. After each verb, its output, the records, the index and the verdict of verify are
/// compared with a model.
#include "tools/minidba/catalog_model.h"

#include <unistd.h>

#include <ctime>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/model.h"
#include "tools/minidba/verb.h"

using namespace rdm;

namespace {

using support::Finished;
using support::same;

enum class Kind {
  update,
  import,
  expire,
  remove,
  rebuild,
  index,
  unclassified,
  get,
  list,
  stats,
  move,
  lose_map,
  damage_map,
  lose_index,
  put_by_another,
  remove_by_another
};
constexpr const char *kinds[] = {
    "update", "import", "expire", "delete",   "rebuild",    "index",      "unclassified",   "get",
    "list",   "stats",  "move",   "lose map", "damage map", "lose index", "put by another", "remove by another"};

/// Element is an object of a stream, as indexes into the arrays below.
struct Element {
  int url = 0, variant = 0, changed = 0, number = 0;
};

constexpr const char *urls[] = {"http://localhost/1",
                                "http://localhost/2",
                                "http://localhost/3",
                                "http://localhost/4",
                                "http://localhost/5",
                                "http://localhost/6",
                                "2",
                                "http://localhost/%20/"};
constexpr int url_count = 8;

constexpr char past[] = "Mon, 03 Jan 2000 10:00:00 GMT", future[] = "Fri, 03 Jan 2098 10:00:00 GMT";
constexpr const char *change_times[] = {"", "Mon, 01 Jan 1990 00:00:00 GMT", "Fri, 01 Jan 2016 00:00:00 GMT", "never"};
constexpr const char *numbers[] = {"", "1", "2", "3", "4", "17", "1000", "4294967295", "0", "x"};

const std::vector<Attributes> &variants() {
  static const std::vector<Attributes> all{
      {{"title", "One"}},
      {{"Title", "One"}},
      {{"title", "Two"}, {"classification", "a"}},
      {{"title", "Past"}, {"rd-expires", past}},
      {{"rd-expires", future}, {"classification-2", "b"}},
      {{"title", "A\tB"}, {"title-1", "C\\D\nE\rF"}, {"body", {"a\0\n}@b", 6}}, {"author", "A"}, {"author", "B"}},
      {{"title", ""}, {"rd-expires", "never"}, {"classifications", "x"}},
      {},
      {{"body", std::string(5000, 'x')}},
      {{"body", std::string(70000, 'y')}, {"rd-expires", past}},
  };
  return all;
}
constexpr int variant_count = 10, bad_count = 3;  // variants from variant_count on are rejected objects

StreamObject object_of(const Element &element) {
  static const StreamObject bad[bad_count] = {
      {"@DOCUMENT { http://localhost/1\ntitle{3}:Two\n}\n",
       "no colon and tab after title{3}",
       "@DOCUMENT { http://localhost/1\ntitle{3}:Two\n}\n",
       {"http://localhost/1", {}},
       ""},
      {"@DOCUMENT { -\ntitle{3}:\tTwo\n}\n", "no URL", "@DOCUMENT { -\ntitle{3}:\tTwo\n}", {"-", {}}, ""},
      // Only the first object can be a header.
      {"@RDMHEADER { -\nrdm-version{3}:\t1.0\n}\n",
       "no URL",
       "@RDMHEADER { -\nrdm-version{3}:\t1.0\n}",
       {"-", {}},
       ""}};
  if (element.variant >= variant_count) return bad[element.variant - variant_count];
  Attributes attributes;
  StreamObject object;
  object.number = numbers[element.number];
  if (!object.number.empty()) attributes.emplace_back("minidba-number", object.number);
  if (const std::string changed = change_times[element.changed]; !changed.empty())
    attributes.emplace_back("rd-last-changed", changed);
  const Attributes &others = variants()[static_cast<size_t>(element.variant)];
  attributes.insert(attributes.end(), others.begin(), others.end());
  object.description.url = urls[element.url];
  for (const auto &[name, value] : attributes)
    if (name != "minidba-number" && !value.empty())
      object.description.attributes[name == "Title" ? "title" : name].push_back(value);
  object.text = rd(object.description.url, attributes);
  object.kept = object.text.substr(0, object.text.size() - 1);
  return object;
}

struct Operation {
  Kind kind = Kind::stats;
  Flags flags;
  bool is_piped = false;
  bool has_header = false;
  int next_number = 0, announced = 0;  // of the header; 0 for nothing
  std::vector<Element> elements;
  std::vector<int> words;  // URLs, and behind them numbers
  int since = 0;
  uint32_t number = 1;  // of another program's record
  int seconds = 0;      // since the last operation
  int url = 0;
};

Stream stream_of(const Operation &operation) {
  Stream stream;
  for (const Element &element : operation.elements) {
    const StreamObject object = object_of(element);
    const bool is_in_front = stream.objects.empty() && !operation.has_header;
    if (!is_in_front || object.text.compare(0, 10, "@RDMHEADER") != 0) stream.objects.push_back(object);
  }
  if (!operation.has_header) return stream;
  Attributes attributes{{"rdm-version", "1.0"}};
  if (operation.next_number > 0) {
    stream.next_number = static_cast<uint64_t>(operation.next_number == 1 ? 0 : operation.next_number);
    attributes.emplace_back("minidba-next-number", std::to_string(*stream.next_number));
  }
  if (operation.announced > 0) {
    // Usually the right number.
    stream.count = operation.announced > 1 ? stream.objects.size() : stream.objects.size() + 1;
    attributes.emplace_back("minidba-descriptions", std::to_string(*stream.count));
  }
  stream.header = rd("-", attributes);
  stream.header.replace(1, 8, "RDMHEADER");
  return stream;
}

std::string word_of(int word) { return word < url_count ? urls[word] : std::to_string(word - url_count); }

/// abridged returns a text on one line, without long runs of one character.
std::string abridged(const std::string &text) {
  std::string line;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find_first_not_of(text[at], at), text.size());
    line += text[at] == '\n' ? "\\n" : std::string(1, text[at]);
    at = end - at > 50 ? end : at + 1;
  }
  return line;
}

[[maybe_unused]] void showValue(const Operation &operation, std::ostream &out) {
  const Flags &flags = operation.flags;
  const Kind kind = operation.kind;
  out << kinds[static_cast<size_t>(kind)];
  if (operation.seconds != 0) out << " after " << operation.seconds << " s";
  if (kind <= Kind::index) out << (flags.dry_run ? " --dry-run" : "") << (flags.json ? " --json" : "");
  if (kind == Kind::import && flags.replace) out << " --replace";
  if (kind == Kind::import && flags.no_header) out << " --no-header";
  if (kind == Kind::import && flags.allow_empty) out << " --allow-empty";
  if (kind == Kind::list) out << " since " << operation.since;
  if (kind == Kind::put_by_another || kind == Kind::remove_by_another) out << ' ' << operation.number;
  if (kind == Kind::put_by_another) out << ' ' << urls[operation.url];
  if (kind == Kind::remove || kind == Kind::get)
    for (const int word : operation.words) out << ' ' << word_of(word);
  if (kind != Kind::update && kind != Kind::import) return;
  out << (flags.rejects ? " --rejects" : "") << (operation.is_piped ? " from a pipe" : "") << " {";
  out << abridged(stream_of(operation).text());
  out << '}';
}

/// number generates numbers below a bound, independent of the size of the case.
rc::Gen<int> number(int bound) { return rc::gen::resize(100, rc::gen::inRange(0, bound)); }
rc::Gen<bool> rarely() { return rc::gen::weightedElement<bool>({{6, false}, {1, true}}); }
rc::Gen<bool> mostly() { return rc::gen::weightedElement<bool>({{1, false}, {3, true}}); }

rc::Gen<Element> elements() {
  return rc::gen::build<Element>(
      rc::gen::set(&Element::url, number(url_count)),
      rc::gen::set(
          &Element::variant,
          rc::gen::weightedOneOf<int>({{10, number(variant_count)},
                                       {1, rc::gen::map(number(bad_count), [](int i) { return i + variant_count; })}})),
      rc::gen::set(&Element::changed, number(4)),
      rc::gen::set(&Element::number,
                   rc::gen::weightedElement<int>(
                       {{8, 0}, {4, 1}, {4, 2}, {4, 3}, {3, 4}, {2, 5}, {2, 6}, {1, 7}, {1, 8}, {1, 9}})));
}

rc::Gen<Flags> flags() {
  return rc::gen::build<Flags>(rc::gen::set(&Flags::dry_run, rarely()), rc::gen::set(&Flags::json, rarely()),
                               rc::gen::set(&Flags::quiet, rarely()), rc::gen::set(&Flags::rejects, mostly()),
                               rc::gen::set(&Flags::replace, mostly()), rc::gen::set(&Flags::no_header, mostly()),
                               rc::gen::set(&Flags::allow_empty, rarely()));
}

rc::Gen<Operation> operations() {
  const auto kind = rc::gen::weightedElement<Kind>({{10, Kind::update},
                                                    {4, Kind::import},
                                                    {2, Kind::expire},
                                                    {4, Kind::remove},
                                                    {1, Kind::rebuild},
                                                    {4, Kind::index},
                                                    {1, Kind::unclassified},
                                                    {1, Kind::get},
                                                    {1, Kind::list},
                                                    {1, Kind::stats},
                                                    {1, Kind::move},
                                                    {1, Kind::lose_map},
                                                    {1, Kind::damage_map},
                                                    {1, Kind::lose_index},
                                                    {3, Kind::put_by_another},
                                                    {1, Kind::remove_by_another}});
  return rc::gen::build<Operation>(
      rc::gen::set(&Operation::kind, kind), rc::gen::set(&Operation::flags, flags()),
      rc::gen::set(&Operation::is_piped, rarely()), rc::gen::set(&Operation::has_header, mostly()),
      rc::gen::set(&Operation::next_number, rc::gen::weightedElement<int>({{8, 0}, {1, 5}, {1, 30}, {1, 1}})),
      rc::gen::set(&Operation::announced, rc::gen::weightedElement<int>({{4, 0}, {4, 2}, {1, 1}})),
      rc::gen::set(&Operation::elements, rc::gen::resize(8, rc::gen::container<std::vector<Element>>(elements()))),
      rc::gen::set(&Operation::words, rc::gen::resize(4, rc::gen::container<std::vector<int>>(number(url_count + 6)))),
      rc::gen::set(&Operation::since, number(3)),
      rc::gen::set(&Operation::number, rc::gen::element<uint32_t>(1, 2, 3, 4, 5, 6, 20, 1000, 4294967295)),
      rc::gen::set(&Operation::url, number(url_count)),
      rc::gen::set(&Operation::seconds,
                   rc::gen::weightedElement<int>({{4, 0}, {2, 1}, {2, 1000}, {2, -1}, {2, -500}})));
}

/// others returns descriptions for a file so large that writers edit a copy of it.
Stream others(int count) {
  Stream stream;
  for (int i = 0; i < count; ++i) {
    StreamObject &object = stream.objects.emplace_back();
    object.description = {"http://localhost/other/" + std::to_string(i), {{"body", {std::string(400, 'b')}}}};
    object.text = rd(object.description.url, {{"body", std::string(400, 'b')}});
  }
  return stream;
}

class Case {
 public:
  /// Case makes a catalog with this many descriptions; with 0, none.
  explicit Case(int count) {
    const Operation filling;
    operation_ = &filling;
    if (count > 0) expect(run({"update"}, others(count)), model_.update(others(count), {}, clock_));
    compare();
    operation_ = nullptr;
  }

  void apply(const Operation &operation) {
    operation_ = &operation;
    clock_ += operation.seconds;
    perform();
    compare();
  }

 private:
  Finished run(std::vector<std::string> words, const Stream &stream = {}) const {
    const std::vector<std::string> files{"-d", catalog_.path(), "-i", catalog_.path(".idx")};
    words.insert(words.begin(), files.begin(), files.end());
    return run_verb(words, stream.text(), !operation_->is_piped, [this] { return clock_; });
  }

  /// flagged returns a verb with those flags of the operation that it has.
  std::vector<std::string> flagged(const std::string &verb) const {
    const Flags &flags = operation_->flags;
    std::vector<std::string> words{verb};
    if (flags.dry_run) words.emplace_back("--dry-run");
    if (flags.json) words.emplace_back("--json");
    if (flags.quiet) words.emplace_back("--quiet");
    if (verb == "import" && flags.replace) words.emplace_back("--replace");
    if (verb == "import" && flags.no_header) words.emplace_back("--no-header");
    if (verb == "import" && flags.allow_empty) words.emplace_back("--allow-empty");
    if (flags.rejects && (verb == "update" || verb == "import"))
      words.insert(words.end(), {"--rejects", catalog_.path(".rejects")});
    return words;
  }

  static void expect(const Finished &finished, const Result &expected, bool compares_errors = true) {
    if (compares_errors) same("standard error", finished.errors, expected.errors);
    same(("exit status after \"" + finished.errors + "\"").c_str(), finished.status, expected.status);
    support::same_bytes("standard output", finished.out, expected.out);
  }

  void perform() {
    const Flags &flags = operation_->flags;
    switch (operation_->kind) {
      case Kind::update:
      case Kind::import:
        return take_in();
      case Kind::expire:
        return expect(run(flagged("expire")), model_.expire(flags));
      case Kind::remove:
        return remove();
      case Kind::rebuild:
        return expect(run(flagged("rebuild")), model_.rebuild(flags));
      case Kind::index:
        return expect(run(flagged("index")), model_.index(flags));
      case Kind::unclassified:
        return expect(run({"unclassified"}), model_.unclassified());
      case Kind::get:
        return get();
      case Kind::list:
        return list();
      case Kind::stats:
        return stats();
      case Kind::move:
        return move();
      case Kind::lose_map:
        ::unlink(catalog_.path(".url").c_str());
        return model_.forget_map();
      case Kind::damage_map:
        support::write_file(catalog_.path(".url"), "damaged");
        return model_.forget_map();
      case Kind::lose_index:
        ::unlink(catalog_.path(".idx").c_str());
        return model_.forget_index();
      case Kind::put_by_another:
      case Kind::remove_by_another:
        return change_by_another();
    }
  }

  void change_by_another() {
    char key[9];
    std::snprintf(key, sizeof key, "%08x", operation_->number);
    const Description description{urls[operation_->url], {{"title", {"Foreign"}}}};
    const bool is_put = operation_->kind == Kind::put_by_another;
    // The hash library may lose records that it changes near one longer than a page.
    if (model_.has_long_records()) return;
    if (is_put && model_.put_by_another(operation_->number, description))
      catalog_.put(key, rd(description.url, {{"title", "Foreign"}}));
    if (!is_put && model_.remove_by_another(operation_->number)) catalog_.remove(key);
  }

  void take_in() {
    const bool is_update = operation_->kind == Kind::update;
    const Stream stream = stream_of(*operation_);
    const Result expected =
        is_update ? model_.update(stream, operation_->flags, clock_) : model_.import(stream, operation_->flags, clock_);
    expect(run(flagged(is_update ? "update" : "import"), stream), expected);
    if (expected.rejects) rejects_ = *expected.rejects;
    same("is there a file of rejects", support::file_exists(catalog_.path(".rejects")), rejects_.has_value());
    if (rejects_) same("rejects", support::read_file(catalog_.path(".rejects")), *rejects_);
  }

  std::vector<std::string> words() const {
    std::vector<std::string> all;
    for (const int word : operation_->words) all.push_back(word_of(word));
    return all.empty() ? std::vector<std::string>{urls[0]} : all;
  }

  void remove() {
    std::vector<std::string> command = flagged("delete"), all = words();
    command.insert(command.end(), all.begin(), all.end());
    expect(run(command), model_.remove(all, operation_->flags));
  }

  void get() {
    std::vector<std::string> command{"get"}, all = words();
    command.insert(command.end(), all.begin(), all.end());
    expect(run(command), model_.get(all));
  }

  void list() {
    static constexpr time_t times[] = {0, 1451606400, 1451606401};
    static constexpr const char *texts[] = {"", "1 Jan 2016", "Fri, 01 Jan 2016 00:00:01 GMT"};
    std::vector<std::string> command{"list"};
    if (operation_->since > 0) command.insert(command.end(), {"--since", texts[operation_->since]});
    if (operation_->flags.json) command.insert(command.end(), {"--format", "tsv"});
    expect(run(command), model_.list(times[operation_->since], operation_->flags.json));
  }

  void stats() {
    Finished finished = run({"stats", "--json"});
    if (finished.status == 0) {
      const auto figures = nlohmann::ordered_json::parse(finished.out);
      std::map<std::string, int> attributes = figures["attributes"];
      finished.out.clear();
      for (const char *name : {"descriptions", "bytes", "longest", "next-number"})
        finished.out += (finished.out.empty() ? "\"" : ",\"") + std::string(name) + "\":" + figures[name].dump();
      for (const auto &[name, count] : attributes) finished.out += ",\"" + name + "\":" + std::to_string(count);
    }
    expect(finished, model_.stats());
  }

  /// move exports the catalog and imports it into another, which must be the same.
  void move() {
    const Finished exported = run({"export"});
    expect(exported, model_.export_whole());
    if (exported.status != 0) return;
    const CatalogFiles other;
    same("import", run_verb({"-d", other.path(), "-q", "import"}, exported.out).status, 0);
    if (!model_.has_undated()) {
      same("moved records", other.records(), catalog_.records());
      same("export again", run_verb({"-d", other.path(), "export"}).out, exported.out);
    }
    support::write_file(other.path(".soif"), "before");
    same("export to a file", run({"export", other.path(".soif")}).status, 0);
    same("exported file", support::read_file(other.path(".soif")), exported.out);
  }

  void compare() {
    same("is there a catalog", support::file_exists(catalog_.path()), model_.exists());
    same("is there an index", support::file_exists(catalog_.path(".idx")), model_.index_words().has_value());
    if (!model_.exists()) return;
    same("records", model_.adopt(catalog_.records()), "");
    if (const auto words = model_.index_words()) same("index", catalog_.words(), *words);
    expect(run_verb({"-d", catalog_.path(), "verify"}), model_.verify(), false);
  }

  CatalogFiles catalog_;
  CatalogModel model_{catalog_.path()};
  const Operation *operation_ = nullptr;
  std::optional<std::string> rejects_;
  time_t clock_ = 1'800'000'000;
};

TEST(CatalogModel, AnyOrderOfVerbs) {
  support::check_model(30, [] {
    const auto list = *rc::gen::scale(0.25, rc::gen::container<std::vector<Operation>>(operations())).as("operations");
    const int count = *rc::gen::weightedElement<int>({{2, 0}, {1, 150}}).as("descriptions to begin with");
    Case test(count);
    for (const Operation &operation : list) test.apply(operation);
  });
}

}  // namespace
