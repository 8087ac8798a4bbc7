// SPDX-License-Identifier: MIT
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "libcs/guard.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using Pairs = std::vector<std::pair<const char *, std::string>>;

std::string contents(csio *io) {
  std::string bytes;
  char block[1000];
  csio_rewind(io);
  for (int32_t n = 0; (n = csio_copy(io, block, sizeof block)) > 0;) bytes.append(block, static_cast<size_t>(n));
  return bytes;
}

class RdmQuery : public support::HostTest {
 protected:
  const char *convert(const Pairs &parameters, uint32_t max_memory = 0) {
    const PblockPtr block(host_param_create(7));
    for (const auto &[name, value] : parameters) host_param_add(name, value.c_str(), block.get());
    header = make_csio(max_memory);
    query = make_csio(max_memory);
    return pblock_pblock2rdm(block.get(), header.get(), query.get());
  }

  CsioPtr header;
  CsioPtr query;
};

TEST_F(RdmQuery, HasAHeaderAndAQueryObject) {
  const struct {
    Pairs parameters;
    const char *header, *query;
  } rows[] = {
      {{{"type", "rd-request"}},
       "@RDMHEADER { -\n"
       "rdm-version{3}:\t1.0\n"
       "rdm-type{10}:\trd-request\n"
       "}\n\n\n\n",
       "@RDMQUERY { -\n"
       "}\n"},
      {{{"csid", "x-catalog://h:1/n"}, {"ql", "search"}, {"type", "status-request"}},
       "@RDMHEADER { -\n"
       "rdm-version{3}:\t1.0\n"
       "rdm-type{14}:\tstatus-request\n"
       "rdm-query-language{6}:\tsearch\n"
       "catalog-service-id{17}:\tx-catalog://h:1/n\n"
       "}\n\n\n\n",
       "@RDMQUERY { -\n"
       "}\n"},
      {{{"scope", "all"}, {"type", "rd-request"}},
       "@RDMHEADER { -\n"
       "rdm-version{3}:\t1.0\n"
       "rdm-type{10}:\trd-request\n"
       "}\n\n\n\n",
       "@RDMQUERY { -\n"
       "scope{3}:\tall\n"
       "}\n"},
      {{{"view-hits", "1..10"}, {"type", "t"}},
       "@RDMHEADER { -\n"
       "rdm-version{3}:\t1.0\n"
       "rdm-type{1}:\tt\n"
       "}\n\n\n\n",
       "@RDMQUERY { -\n"
       "view-hits{5}:\t1..10\n"
       "}\n"},
      {{{"view-attributes", "title,author"}, {"type", "t"}},
       "@RDMHEADER { -\n"
       "rdm-version{3}:\t1.0\n"
       "rdm-type{1}:\tt\n"
       "}\n\n\n\n",
       "@RDMQUERY { -\n"
       "view-attributes{12}:\ttitle,author\n"
       "}\n"},
      {{{"view-order", "title"}, {"type", "t"}},
       "@RDMHEADER { -\n"
       "rdm-version{3}:\t1.0\n"
       "rdm-type{1}:\tt\n"
       "}\n\n\n\n",
       "@RDMQUERY { -\n"
       "view-order{5}:\ttitle\n"
       "}\n"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(convert(row.parameters), nullptr);
    EXPECT_EQ(contents(header.get()), row.header);
    EXPECT_EQ(contents(query.get()), row.query);
  }
}

TEST_F(RdmQuery, PrintsTheQueryInTheOrderOfItsTable) {
  EXPECT_EQ(convert({{"scope", "since 1 Jan 2026"},
                     {"view-attributes", "title"},
                     {"view-hits", "7"},
                     {"view-order", "a"},
                     {"type", "t"}}),
            nullptr);
  EXPECT_EQ(contents(query.get()),
            "@RDMQUERY { -\n"
            "view-order{1}:\ta\n"
            "view-attributes{5}:\ttitle\n"
            "view-hits{1}:\t7\n"
            "scope{16}:\tsince 1 Jan 2026\n"
            "}\n");
}

TEST_F(RdmQuery, WithoutATypeIsRefusedAndWritesNothing) {
  EXPECT_STREQ(convert({{"scope", "all"}, {"Type", "rd-request"}}), "Malformed RDM request - GET requires type");
  for (const csio *io : {header.get(), query.get()}) {
    EXPECT_EQ(io->length, 0u);
    EXPECT_EQ(io->data, nullptr);
  }
}

TEST_F(RdmQuery, IgnoresOtherParameters) {
  EXPECT_EQ(convert({{"type", "t"}, {"rdm-type", "x"}, {"Scope", "x"}, {"1", "x"}, {"", "x"}}), nullptr);
  EXPECT_EQ(contents(header.get()), "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{1}:\tt\n}\n\n\n\n");
  EXPECT_EQ(contents(query.get()), "@RDMQUERY { -\n}\n");
}

TEST_F(RdmQuery, LeavesOutEmptyValues) {
  EXPECT_EQ(convert({{"type", ""}, {"ql", ""}, {"csid", ""}, {"scope", ""}}), nullptr);
  EXPECT_EQ(contents(header.get()), "@RDMHEADER { -\nrdm-version{3}:\t1.0\n}\n\n\n\n");
  EXPECT_EQ(contents(query.get()), "@RDMQUERY { -\n}\n");
}

TEST_F(RdmQuery, CountsTheBytesOfValuesAndKeepsThem) {
  EXPECT_EQ(convert({{"type", "}\n\n@X { y\n"}, {"scope", "a\nb{2}:\tc\n"}}), nullptr);
  EXPECT_EQ(contents(header.get()), "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{10}:\t}\n\n@X { y\n\n}\n\n\n\n");
  EXPECT_EQ(contents(query.get()), "@RDMQUERY { -\nscope{10}:\ta\nb{2}:\tc\n\n}\n");
}

TEST_F(RdmQuery, UsesTheFirstOfEqualParameters) {
  EXPECT_EQ(convert({{"type", "one"}, {"type", "two"}, {"scope", "all"}, {"scope", "since"}}), nullptr);
  EXPECT_EQ(contents(header.get()), "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{3}:\tone\n}\n\n\n\n");
  EXPECT_EQ(contents(query.get()), "@RDMQUERY { -\nscope{3}:\tall\n}\n");
}

TEST_F(RdmQuery, FlushesBuffersThatMovedToAFile) {
  const std::string value(40000, 'x');
  EXPECT_EQ(convert({{"type", value}, {"scope", value}}, 32768), nullptr);
  for (const csio *io : {header.get(), query.get()}) {
    EXPECT_EQ(io->flags, 0x10u);
    EXPECT_EQ(io->wbuf_len, 0);
    EXPECT_EQ(io->finished, 0) << "the caller finishes its buffers";
  }
  EXPECT_EQ(contents(header.get()), "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{40000}:\t" + value + "\n}\n\n\n\n");
  EXPECT_EQ(contents(query.get()), "@RDMQUERY { -\nscope{40000}:\t" + value + "\n}\n");
}

TEST_F(RdmQuery, SurvivesTheFailureOfAnyAllocation) {
  for (long refused = 1;; ++refused) {
    const PblockPtr block(host_param_create(7));
    for (const char *name : {"type", "csid", "scope"}) host_param_add(name, "value", block.get());
    header = make_csio();
    query = make_csio();
    const long before = host.allocations;
    host.fail_allocation = before + refused;
    EXPECT_EQ(pblock_pblock2rdm(block.get(), header.get(), query.get()), nullptr);
    host.fail_allocation = 0;
    if (host.allocations < before + refused) break;
  }
}

TEST_F(RdmQuery, IsReadBackByTheParser) {
  EXPECT_EQ(convert({{"type", "rd-request"}, {"csid", "x-catalog://h:1/n"}}), nullptr);
  const std::string text = contents(header.get());
  SoifReader reader(text);
  const SoifPtr object = reader.next();
  ASSERT_TRUE(object);
  EXPECT_STREQ(object->template_name, "RDMHEADER");
  EXPECT_STREQ(object->url, "-");
  EXPECT_STREQ(soif_findval(object.get(), "rdm-type"), "rd-request");
  EXPECT_STREQ(soif_findval(object.get(), "catalog-service-id"), "x-catalog://h:1/n");
}

}  // namespace
