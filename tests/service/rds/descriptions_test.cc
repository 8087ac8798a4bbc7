// SPDX-License-Identifier: MIT
#include "service/rds/descriptions.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dba/guard.h"
#include "service/support/catalog.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::soif;

/// Printed is what one of the two ways of printing left.
struct Printed {
  bool printed;
  uint32_t length;
  std::string diagnostics;
  bool operator==(const Printed &) const = default;
};

class DescriptionsTest : public support::HostTest {
 protected:
  DatabasePtr database() const { return DatabasePtr(dba_open(catalog_.path().c_str(), "r")); }

  /// print_at calls `print` with a buffer that is said to have `length` bytes. A file takes no memory for them.
  template <typename Print>
  static Printed print_at(uint32_t length, Print print) {
    const support::Diagnostics diagnostics;
    const CsioPtr output = make_csio();
    csio_append(output.get(), "x", 1);
    csio_convert2file(output.get());
    output->length = length;
    const bool printed = print(output.get());
    return {printed, output->length, diagnostics.text()};
  }

  support::TemporaryDirectory directory_;
  support::Catalog catalog_{directory_};
};

/// An answer's length has 32 bits, of which its header may take 4096 bytes.
TEST_F(DescriptionsTest, BothWaysSkipARecordThatAnAnswerHasNoRoomFor) {
  const std::string record = soif("DOCUMENT", "u", {{"author-1", "A"}, {"title", std::string(300, 't')}});
  catalog_.put(1, record);
  char title[] = "title", author[] = "author";
  char *lists[][3] = {{nullptr}, {title, nullptr}, {author, title, nullptr}};
  for (auto &attributes : lists) {
    const DatabasePtr open = database();
    const auto parsed = [&](csio *output) { return Descriptions(open.get(), attributes, output).print("00000001"); };
    const auto copied = [&](csio *output) { return QuickDescriptions(open.get(), attributes, output).print(1u); };
    const uint32_t size = print_at(0, parsed).length;
    const uint32_t longest = UINT32_MAX - 4096 - size;
    for (const uint32_t length : {0u, longest - 1, longest, longest + 1, longest + 50, UINT32_MAX}) {
      const Printed printed = print_at(length, copied);
      EXPECT_EQ(printed, print_at(length, parsed)) << length;
      EXPECT_EQ(printed.printed, length <= longest) << length;
    }
    EXPECT_EQ(print_at(longest + 1, copied).diagnostics,
              "ERROR: No room in the answer for catalog-database: key 00000001\n");
  }
}

TEST_F(DescriptionsTest, CanonicalRecordsAreCopiedWithoutMakingAnObject) {
  const std::string record = soif("DOCUMENT", "u", {{"author-1", "A"}, {"title", "T"}});
  catalog_.put(1, record);
  const DatabasePtr open = database();
  const CsioPtr output = make_csio();
  QuickDescriptions descriptions(open.get(), nullptr, output.get());
  EXPECT_TRUE(descriptions.print(1u));
  const long before = host.allocations;
  EXPECT_TRUE(descriptions.print(1u));
  EXPECT_EQ(host.allocations, before) << "no object was made";
  EXPECT_EQ(std::string(reinterpret_cast<char *>(output->data), output->length), record + record);
}

TEST_F(DescriptionsTest, RecordsThatAreMissingOrMalformedAreReported) {
  catalog_.put(2, "no object");
  const DatabasePtr open = database();
  for (const uint32_t number : {1u, 2u}) {
    const std::string key = "0000000" + std::to_string(number);
    const Printed copied =
        print_at(1, [&](csio *output) { return QuickDescriptions(open.get(), nullptr, output).print(number); });
    EXPECT_EQ(copied,
              print_at(1, [&](csio *output) { return Descriptions(open.get(), nullptr, output).print(key.c_str()); }));
    EXPECT_EQ(copied.diagnostics, number == 1 ? "WARNING: No entry in catalog-database: key 00000001\n"
                                              : "WARNING: Malformed RD in catalog-database: key 00000002\n");
  }
}

}  // namespace
