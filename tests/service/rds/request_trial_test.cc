// SPDX-License-Identifier: MIT
/// Very many random requests to random catalogs. The handler, with and without slices, must reply as the exported
/// procedures do: the same bytes, counts, log lines and diagnostics. RDM_REQUESTS is the number of requests, RDM_SEED
/// repeats those of another run.
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <random>

#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "dba/guard.h"
#include "service/support/catalog.h"
#include "service/support/question.h"
#include "service/support/sending.h"
#include "support/database.h"
#include "support/environment.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::soif;

using Random = std::mt19937;

uint32_t below(Random &random, uint32_t limit) { return std::uniform_int_distribution<uint32_t>(0, limit - 1)(random); }

template <typename Choices>
auto one_of(Random &random, const Choices &choices) {
  return *(std::begin(choices) + below(random, static_cast<uint32_t>(std::size(choices))));
}

const std::vector<std::string> attribute_names = {
    "title", "author", "author-1", "author-2", "description", "body",        "Title", "AUTHOR-3",
    "x",     "y",      "z",        "keywords", "content",     "language-10", "b{",    ""};

uint32_t size_of_value(Random &random) {
  constexpr uint32_t limits[] = {2, 20, 100, 100, 1000, 3000};
  return below(random, 300) == 0 ? below(random, 200'000) : below(random, one_of(random, limits));
}

/// object returns an object with random attributes in random order. The printer may write it in another form.
std::string object(Random &random) {
  std::vector<std::pair<std::string, std::string>> attributes;
  for (uint32_t i = below(random, 8); i > 0; --i)
    attributes.emplace_back(one_of(random, attribute_names),
                            std::string(size_of_value(random), static_cast<char>('a' + below(random, 26))));
  return soif(below(random, 2) == 0 ? "DOCUMENT" : "FILE", "x://" + std::to_string(random()), attributes);
}

/// printed returns what the printer makes of a text, if that is an object.
std::string printed(const std::string &text) {
  const CsioPtr output = make_csio();
  SoifReader reader(text);
  if (const SoifPtr parsed = reader.next()) SoifWriter(output.get()).print(parsed.get());
  return {reinterpret_cast<char *>(output->data), output->length};
}

/// record returns a record: most are as the printer writes them, others are not, or are damaged.
std::string record(Random &random) {
  std::string text = object(random);
  const uint32_t kind = below(random, 30);
  if (kind > 2) return printed(text);
  if (kind == 1) text.resize(below(random, static_cast<uint32_t>(text.size())));
  for (uint32_t i = kind == 2 ? 3 : 0; i > 0; --i)
    text[below(random, static_cast<uint32_t>(text.size()))] = static_cast<char>(random());
  return text;
}

/// TrialCatalog is a catalog that changes at random.
class TrialCatalog {
 public:
  explicit TrialCatalog(Random &random) : random_(random) {
    constexpr uint32_t counts[] = {1, 5, 30, 30, 100, 100, 600};
    count_ = 1 + below(random_, one_of(random_, counts));
    write_database();
    write_index();
  }

  /// change replaces one of the files, or damages it in place.
  void change() {
    switch (below(random_, 5)) {
      case 0:
        return write_database();
      case 1:
        return write_index();
      case 2:
        return damage(catalog_.path());
      case 3:
        return damage(catalog_.path() + ".idx");
      default:
        write_database();
        write_index();
    }
  }

 private:
  void write_database() {
    const std::string path = catalog_.path() + ".new";
    constexpr unsigned page_sizes[] = {512, 4096, 32768};
    HASHINFO info{};
    info.bsize = one_of(random_, page_sizes);
    {
      const DatabasePtr database(QX_dbopen(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644, DB_HASH, &info));
      for (uint32_t number = 1; number <= count_; ++number) {
        char key[9];
        std::snprintf(key, sizeof key, "%08x", number);
        if (below(random_, 40) != 0) support::put_record(database.get(), key, record(random_));
      }
    }
    std::filesystem::rename(path, catalog_.path());
    mark(catalog_.path());
  }

  void write_index() {
    std::vector<std::pair<uint32_t, uint32_t>> entries;
    const bool is_far = below(random_, 20) == 0;
    for (uint32_t i = 0, time = 0; i < count_; ++i) {
      time += below(random_, 3);
      const uint32_t number = below(random_, 30) == 0 ? 1 + below(random_, count_ + 3) : i + 1;
      entries.emplace_back(time, is_far && i == count_ / 2 ? UINT32_MAX : number);
    }
    catalog_.index(entries);
    mark(catalog_.path() + ".idx");
  }

  /// damage changes some bytes of a file in place, most of them at the starts of pages, or cuts it.
  void damage(const std::string &path) {
    std::string bytes = support::read_file(path);
    if (bytes.empty()) return;
    const auto size = static_cast<uint32_t>(bytes.size());
    for (uint32_t i = below(random_, 4); i > 0; --i)
      bytes[(below(random_, size) / 512 * 512 + below(random_, 40)) % size] = static_cast<char>(random_());
    if (below(random_, 4) == 0) bytes.resize(below(random_, size));
    support::write_file(path, bytes);
    mark(path);
  }

  /// mark gives a file a time of change of its own.
  void mark(const std::string &path) {
    const timespec time{++marks_, 1}, times[] = {time, time};
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
  }

  Random &random_;
  support::TemporaryDirectory directory_;
  support::Catalog catalog_{directory_};
  support::Registry registry_{directory_, "csid=\"c\" catalog-database=\"" + catalog_.path() + "\"\n"};
  uint32_t count_ = 1;
  time_t marks_ = 1'000'000;
};

support::Question question(Random &random) {
  constexpr const char *hits[] = {"", "", "", "", "1", "3", "0", "-1", "50"};
  constexpr const char *lists[] = {"",         "",           "",  "title", "title", "title,author-1", "author",
                                   "AUTHOR-3", "b,x,,z",     "{", "body",  "x,y,z", "title,nothing",  "language-10",
                                   "nothing",  "description"};
  support::Question made{"all", one_of(random, hits), one_of(random, lists)};
  if (below(random, 2) != 0) return made;
  char since[64];
  cs_time2str(below(random, 700), since, sizeof since);
  made.scope = std::string("since ") + since;
  return made;
}

/// bind_at_random lets the host send slices or not, and chooses how long slices and views may be.
void bind_at_random(Random &random) {
  constexpr uint64_t least[] = {1, 200, 65536};
  constexpr int64_t shares[] = {1, 1, 4, 1000};
  least_slice = one_of(random, least);
  view_share = one_of(random, shares);
  qxapi_bind_slices(below(random, 4) == 0 ? nullptr : support::send_slice);
}

class RequestTrial : public support::HostTest {
 private:
  support::Hour hour_;
  support::SendingLimits limits_;
};

TEST_F(RequestTrial, RepliesAsTheExportedProceduresDo) {
  const auto wanted = support::number_from<uint64_t>("RDM_REQUESTS", 1500);
  const auto seed = support::number_from("RDM_SEED", std::random_device{}());
  Random random(seed);
  for (uint64_t asked = 0; asked < wanted;) {
    TrialCatalog catalog(random);
    for (uint32_t left = 60; left > 0; --left) {
      if (below(random, 10) == 0) catalog.change();
      const support::Question asks = question(random);
      qxapi_bind_slices(nullptr);
      const support::Reply right = step_by_step(asks);
      for (uint32_t again = 1 + below(random, 3); again > 0; --again, ++asked) {
        bind_at_random(random);
        const support::Reply reply = handled(asks);
        ASSERT_TRUE(reply == right) << "RDM_SEED=" << seed << " request " << asked << ": " << asks.scope << " hits "
                                    << asks.hits << " names " << asks.names << ": " << reply << "\ninstead of "
                                    << right;
      }
    }
  }
  qxapi_bind_slices(nullptr);
}

}  // namespace
