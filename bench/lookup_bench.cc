// SPDX-License-Identifier: MIT
/// Lookups by name: the fields of a query, of a request head and of an alias file, and the classes of a taxonomy. Each
/// is measured at several sizes; the report ends with the order of growth.
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

#include <benchmark/benchmark.h>
#include <libcs/cs.h>
#include <libcs/tax.h>

#include "hosts/rdmd/front/request_head.h"
#include "qxapi/guard.h"
#include "service/alias.h"

using namespace rdm;

namespace {

/// TemporaryFile is a file with this text, removed at the end of its scope.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string &text) {
    const int fd = ::mkstemp(name_);
    if (fd == -1 || !(std::ofstream(name_) << text)) {
      std::cerr << "lookup_bench: cannot write " << name_ << '\n';
      std::exit(1);
    }
    ::close(fd);
  }
  TemporaryFile(const TemporaryFile &) = delete;
  TemporaryFile &operator=(const TemporaryFile &) = delete;
  ~TemporaryFile() { ::unlink(name_); }
  const char *name() const { return name_; }

 private:
  char name_[32] = "/tmp/lookup_bench.XXXXXX";
};

void decode_form(benchmark::State &state, const std::string &field) {
  std::string text;
  for (std::int64_t i = 0; i < state.range(0); ++i) text += field;
  for (auto _ : state) {
    const PblockPtr block(host_param_create(7));
    std::string copy = text;
    pblock_form2pblock(copy.data(), static_cast<int32_t>(copy.size()), block.get());
  }
  state.SetComplexityN(state.range(0));
}

void query_of_unnamed_fields(benchmark::State &state) { decode_form(state, "&"); }
void query_of_one_field_repeated(benchmark::State &state) { decode_form(state, "=&"); }

void request_head(benchmark::State &state) {
  std::string text = "GET /rdm/status-request HTTP/1.1\r\nHost: h\r\n";
  for (std::int64_t i = 1; i < state.range(0); ++i) text += "X" + std::to_string(i) + ":\r\n";
  text += "\r\n";
  for (auto _ : state) {
    std::string buffer = text;
    benchmark::DoNotOptimize(rdmd::HeadReader({1 << 20, 8190, 200}).take(buffer));
  }
  state.SetComplexityN(state.range(0));
}

void alias_file(benchmark::State &state) {
  std::string text;
  for (std::int64_t i = 0; i < state.range(0); ++i) text += (i % 10 == 0 ? "\n" : " ") + ("name" + std::to_string(i));
  const TemporaryFile file(text + "\n");
  for (auto _ : state) {
    pblock *a2p = nullptr, *p2a = nullptr;
    alias_init(&a2p, &p2a, file.name());
    alias_destroy(a2p, p2a);
  }
  state.SetComplexityN(state.range(0));
}

std::string attribute(const std::string &name, const std::string &value) {
  return name + "{" + std::to_string(value.size()) + "}:\t" + value + "\n";
}

std::string class_of(const std::string &id, const std::string &parent) {
  return "@CLASSIFICATION { -\n" + attribute("id", id) + attribute("parent-id", parent) +
         attribute("taxonomy-id", "t") + "}\n";
}

/// load_taxonomy measures a taxonomy in which the parent of class i is the class that `parent` names, or the root.
template <typename Parent>
void load_taxonomy(benchmark::State &state, const Parent &parent) {
  std::string text = "@TAXONOMY { -\n" + attribute("id", "t") + "}\n";
  for (std::int64_t i = 0; i < state.range(0); ++i) text += class_of("c" + std::to_string(i), parent(i));
  const TemporaryFile file(text);
  for (auto _ : state) {
    Taxonomy *taxonomy = taxonomy_load(file.name());
    taxonomy_destroy(taxonomy);
    host_free(taxonomy);
  }
  state.SetComplexityN(state.range(0));
}

void flat_taxonomy(benchmark::State &state) {
  load_taxonomy(state, [](std::int64_t) { return std::string("ROOT"); });
}

void balanced_taxonomy(benchmark::State &state) {
  load_taxonomy(state, [](std::int64_t i) { return i < 10 ? std::string("ROOT") : "c" + std::to_string(i / 10); });
}

void deep_taxonomy(benchmark::State &state) {
  load_taxonomy(state, [](std::int64_t i) { return i == 0 ? std::string("ROOT") : "c" + std::to_string(i - 1); });
}

BENCHMARK(query_of_unnamed_fields)->Arg(1000)->Arg(2000)->Arg(4000)->Arg(8100)->Complexity();
BENCHMARK(query_of_one_field_repeated)->Arg(1000)->Arg(2000)->Arg(4000)->Complexity();
BENCHMARK(request_head)->Arg(20)->Arg(50)->Arg(100)->Arg(200)->Arg(2690)->Complexity();
BENCHMARK(alias_file)->Arg(5000)->Arg(10000)->Arg(20000)->Arg(40000)->Complexity();
BENCHMARK(flat_taxonomy)->Arg(2500)->Arg(5000)->Arg(10000)->Arg(20000)->Complexity();
BENCHMARK(balanced_taxonomy)->Arg(2500)->Arg(5000)->Arg(10000)->Arg(20000)->Complexity();
BENCHMARK(deep_taxonomy)->Arg(2500)->Arg(5000)->Arg(10000)->Arg(20000)->Complexity();

}  // namespace

BENCHMARK_MAIN();
