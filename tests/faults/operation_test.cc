// SPDX-License-Identifier: MIT
/// Exported procedures with failed allocations: for each, every allocation fails once alone and once with all later
/// ones.

#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "faults/operations.h"
#include "support/directories.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using faults::Library;
using faults::Memory;
using faults::Need;
using faults::Operation;
using faults::Verdict;

/// Far more than any operation allocates.
constexpr long scenario_limit = 20000;

template <typename... Lists>
std::vector<Operation> together(Lists... lists) {
  std::vector<Operation> all;
  (all.insert(all.end(), lists.begin(), lists.end()), ...);
  return all;
}

const std::vector<Library> &libraries() {
  static const std::vector<Library> all = {
      {"libqxapi.so.3", *qxapi_posix_host(), faults::qxapi_operations()},
      {"libcs.so.1", *qxapi_posix_host(),
       together(faults::adt_operations(), faults::soif_operations(), faults::libcs_operations())},
      {"libdba.so.1", *qxapi_posix_host(), faults::dba_operations()},
      {"librdm.so.1", support::memory_host(), together(faults::registry_operations(), faults::rdm_operations())},
  };
  return all;
}

using Names = std::set<std::string>;

/// exports returns the procedures that the binary of a library exports.
Names exports(const Library &library) {
  const std::string command = NM " -D --defined-only " + support::in_build("lib/") + library.file;
  // NOLINTNEXTLINE(cert-env33-c): the command is the build's own tool
  const std::unique_ptr<FILE, int (*)(FILE *)> pipe(::popen(command.c_str(), "r"), ::pclose);
  Names names;
  char address[64], type = '\0', name[256];
  while (pipe && std::fscanf(pipe.get(), "%63s %c %255[^\n]", address, &type, name) == 3)
    if (type == 'T') names.insert(std::string(name).substr(0, std::string(name).find('@')));
  return names;
}

Names named(const Library &library) {
  Names names;
  for (const Operation &operation : library.operations) {
    std::istringstream words(operation.names);
    for (std::string word; words >> word;) names.insert(word);
  }
  return names;
}

TEST(Operations, EveryExportedProcedureHasItsScenario) {
  for (const Library &library : libraries()) {
    EXPECT_FALSE(exports(library).empty()) << library.file;
    EXPECT_THAT(named(library), ::testing::ContainerEq(exports(library))) << library.file;
  }
}

struct Case {
  qxapi_host host;
  Operation operation;
};

void PrintTo(const Case &row, std::ostream *out) { *out << row.operation.names; }

std::vector<Case> cases() {
  std::vector<Case> all;
  for (const Library &library : libraries())
    for (const Operation &operation : library.operations) all.push_back({library.host, operation});
  return all;
}

std::string name_of(const ::testing::TestParamInfo<Case> &info) {
  const std::string names = info.param.operation.names;
  return names.substr(0, names.find(' ')) + "_" + std::to_string(info.index);
}

class OperationFaults : public ::testing::TestWithParam<Case> {
 protected:
  /// run runs the operation and returns true if an allocation failed.
  bool run(long n, bool for_good) {
    Memory memory(GetParam().host, n, for_good);
    const Verdict verdict = GetParam().operation.run(memory);
    EXPECT_EQ(memory.lost_blocks(), 0) << "blocks not released";
    EXPECT_TRUE(verdict == Verdict::right || memory.refused()) << "not right, though memory did not fail";
    EXPECT_NE(verdict, Verdict::wrong);
    if (verdict == Verdict::incomplete) ++incomplete_;
    ++runs_;
    return memory.refused();
  }

  void sweep(bool for_good) {
    long n = 1;
    for (; n < scenario_limit; ++n) {
      SCOPED_TRACE("allocation " + std::to_string(n) + (for_good ? " and all that follow" : ""));
      if (!run(n, for_good)) break;
    }
    EXPECT_LT(n, scenario_limit);
    if (need() == Need::none)
      EXPECT_EQ(n, 1) << "it takes memory";
    else
      EXPECT_GT(n, 1) << "it takes no memory";
  }

  Need need() const { return GetParam().operation.need; }

  long incomplete_ = 0, runs_ = 0;
};

TEST_P(OperationFaults, AreReportedAndLoseNothing) {
  EXPECT_FALSE(run(0, false));
  sweep(false);
  sweep(true);
  EXPECT_EQ(incomplete_ > 0, need() == Need::unreported) << incomplete_ << " of " << runs_ << " results";
  RecordProperty("runs", std::to_string(runs_));
}

INSTANTIATE_TEST_SUITE_P(Exported, OperationFaults, ::testing::ValuesIn(cases()), name_of);

}  // namespace
