// SPDX-License-Identifier: MIT
/// Reading a catalog of 20,000 records: by the checked reader, by the hash library, and page by page without parsing.
/// Prints the ratios and the cost of the checks for each open and each page.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "dba/guard.h"
#include "hashdb/cursor.h"
#include "hashdb/format.h"
#include "qxapi/guard.h"

using namespace rdm;

namespace {

constexpr unsigned records = 20'000;
constexpr unsigned page_size = 32'768;

[[noreturn]] void fail(const char *what) {
  std::cerr << "catalog_reader_bench: " << what << '\n';
  std::exit(1);
}

std::string key_of(unsigned number) {
  char text[9];
  std::snprintf(text, sizeof text, "%08x", number);
  return text;
}

DBT item(const std::string &text) { return {const_cast<char *>(text.data()), text.size()}; }

/// TemporaryCatalog has records of 2 to 3 KB, the usual size of descriptions.
class TemporaryCatalog {
 public:
  TemporaryCatalog() {
    const HostFileGuard file(::mkstemp(path_.data()));
    if (!file) fail("no temporary file");
    HASHINFO info{};
    info.bsize = page_size;
    const DatabasePtr db(QX_dbopen(path(), O_RDWR | O_TRUNC, 0600, DB_HASH, &info));
    if (!db) fail("no catalog");
    std::mt19937 random(1);
    for (unsigned number = 1; number <= records; ++number) {
      const std::string name = key_of(number), text(2000 + random() % 1000, static_cast<char>('a' + number % 26));
      DBT key = item(name);
      const DBT value = item(text);
      if (dba_put(db.get(), &key, &value) != 0) fail("a record is refused");
    }
  }
  TemporaryCatalog(const TemporaryCatalog &) = delete;
  TemporaryCatalog &operator=(const TemporaryCatalog &) = delete;
  ~TemporaryCatalog() { ::unlink(path()); }
  const char *path() const { return path_.c_str(); }

 private:
  std::string path_ = "/tmp/catalog-reader-bench-XXXXXX";
};

const char *catalog() {
  static const TemporaryCatalog catalog;
  return catalog.path();
}

DB *open_with_reader() { return dba_open(catalog(), "r"); }
DB *open_with_library() { return ::dbopen(catalog(), O_RDONLY, 0, DB_HASH, nullptr); }

using Open = DB *(*)();

void open_and_close(benchmark::State &state, Open open) {
  for (auto _ : state) benchmark::DoNotOptimize(DatabasePtr(open()));
}

void get(benchmark::State &state, Open open) {
  const DatabasePtr db(open());
  std::mt19937 random(2);
  for (auto _ : state) {
    const std::string name = key_of(random() % records + 1);
    const DBT key = item(name);
    DBT value{};
    if (dba_get(db.get(), &key, &value) != 0) fail("a record is not found");
    benchmark::DoNotOptimize(value);
  }
}

void walk(benchmark::State &state, Open open) {
  const DatabasePtr db(open());
  for (auto _ : state) {
    DBT key{}, value{};
    unsigned count = 0;
    for (int result = dba_first(db.get(), &key, &value); result == 0; result = dba_next(db.get(), &key, &value))
      ++count;
    if (count != records) fail("a walk ends early");
  }
}

hashdb::Header header_of(host_fd fd) {
  unsigned char bytes[hashdb::header_size];
  if (::pread(fd, bytes, sizeof bytes, 0) != sizeof bytes) fail("no header");
  return hashdb::decode(bytes);
}

/// pages_of_walk returns the offsets of the pages that a walk reads, in its order.
std::vector<off_t> pages_of_walk(const hashdb::Source &source) {
  struct Pages {
    const hashdb::Header &header;
    std::vector<off_t> offsets;
    void add(uint64_t page) { offsets.push_back(static_cast<off_t>(page << header.page_shift)); }
  } pages{source.header, {}};
  hashdb::Cursor cursor(source);
  cursor.watch(
      [](void *to, uint16_t address) {
        auto *all = static_cast<Pages *>(to);
        all->add(overflow_page(all->header, address));
      },
      &pages);
  for (uint32_t bucket = 0; bucket <= source.header.max_bucket; ++bucket) {
    pages.add(bucket_page(source.header, bucket));
    cursor.start(bucket);
    while (cursor.next() == hashdb::Cursor::record) continue;
  }
  return pages.offsets;
}

void read_pages(benchmark::State &state) {
  const HostFileGuard file(host_open_read(catalog()));
  const hashdb::Source source{file.get(), host_seek(file.get(), 0, SEEK_END), header_of(file.get())};
  const std::vector<off_t> offsets = pages_of_walk(source);
  std::vector<char> page(source.header.page_size);
  for (auto _ : state)
    for (const off_t offset : offsets) {
      host_seek(file.get(), offset, SEEK_SET);
      host_read(file.get(), page.data(), static_cast<int32_t>(page.size()));
    }
  state.counters["pages"] = static_cast<double>(offsets.size());
}

void check_header(benchmark::State &state) {
  const HostFileGuard file(host_open_read(catalog()));
  hashdb::Header header = header_of(file.get());
  const int64_t size = ::lseek(file.get(), 0, SEEK_END);
  for (auto _ : state) {
    benchmark::DoNotOptimize(header);
    benchmark::DoNotOptimize(is_sound(header, hashdb::default_hash, size));
  }
}

BENCHMARK_CAPTURE(open_and_close, reader, open_with_reader);
BENCHMARK_CAPTURE(open_and_close, library, open_with_library);
BENCHMARK_CAPTURE(get, reader, open_with_reader);
BENCHMARK_CAPTURE(get, library, open_with_library);
BENCHMARK_CAPTURE(walk, reader, open_with_reader)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(walk, library, open_with_library)->Unit(benchmark::kMillisecond);
BENCHMARK(read_pages)->Unit(benchmark::kMillisecond);
BENCHMARK(check_header);

/// Figures is the usual report; it also keeps CPU times in microseconds, because wall-clock times depend on other load.
class Figures : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run &run : runs) {
      const std::string name = run.benchmark_name();
      times_[name] = run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e6;
      if (run.counters.contains("pages")) pages_ = run.counters.at("pages").value;
    }
  }
  void summarise() const {
    for (const char *what : {"open_and_close", "get", "walk"}) {
      const double reader = time(what, "/reader"), library = time(what, "/library");
      if (library > 0) std::printf("%-16s %8.2f of the library's time\n", what, reader / library);
    }
    std::printf("each open: checking the header takes %.2f us\n", time("check_header", ""));
    if (pages_ > 0)
      std::printf("each page: walking takes %.2f us more than reading it, %.2f us\n",
                  (time("walk", "/reader") - time("read_pages", "")) / pages_, time("read_pages", "") / pages_);
  }

 private:
  double time(const std::string &what, const char *by) const {
    const auto found = times_.find(what + by);
    return found == times_.end() ? 0 : found->second;
  }
  std::map<std::string, double> times_;
  double pages_ = 0;
};

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Figures figures;
  benchmark::RunSpecifiedBenchmarks(&figures);
  figures.summarise();
  benchmark::Shutdown();
}
