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

using Parameters = std::vector<std::pair<const char *, std::string>>;

std::string contents(csio *io) {
  std::string bytes;
  char block[1000];
  csio_rewind(io);
  for (int32_t n = 0; (n = csio_copy(io, block, sizeof block)) > 0;) bytes.append(block, static_cast<size_t>(n));
  return bytes;
}

class RdmQuery : public support::HostTest {
 protected:
  const char *convert(const Parameters &parameters, uint32_t max_memory = 0) {
    const PblockPtr block(host_param_create(7));
    for (const auto &[name, value] : parameters) host_param_add(name, value.c_str(), block.get());
    header = make_csio(max_memory);
    query = make_csio(max_memory);
    return pblock_pblock2rdm(block.get(), header.get(), query.get());
  }

  CsioPtr header;
  CsioPtr query;
};

/// header_with returns a header with a type and further lines; query_with a query with these lines.
std::string header_with(const std::string &type, const std::string &lines = "") {
  return "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{" + std::to_string(type.size()) + "}:\t" + type + "\n" +
         lines + "}\n\n\n\n";
}
std::string query_with(const std::string &lines = "") { return "@RDMQUERY { -\n" + lines + "}\n"; }

TEST_F(RdmQuery, HasAHeaderAndAQueryObject) {
  const struct {
    Parameters parameters;
    std::string header, query;
  } rows[] = {
      {{{"type", "rd-request"}}, header_with("rd-request"), query_with()},
      {{{"csid", "x-catalog://h:1/n"}, {"ql", "search"}, {"type", "status-request"}},
       header_with("status-request", "rdm-query-language{6}:\tsearch\ncatalog-service-id{17}:\tx-catalog://h:1/n\n"),
       query_with()},
      {{{"scope", "all"}, {"type", "t"}}, header_with("t"), query_with("scope{3}:\tall\n")},
      {{{"view-hits", "1..10"}, {"type", "t"}}, header_with("t"), query_with("view-hits{5}:\t1..10\n")},
      {{{"view-attributes", "title,author"}, {"type", "t"}},
       header_with("t"),
       query_with("view-attributes{12}:\ttitle,author\n")},
      {{{"view-order", "title"}, {"type", "t"}}, header_with("t"), query_with("view-order{5}:\ttitle\n")},
      // Other parameters are ignored, also in another letter case.
      {{{"type", "t"}, {"rdm-type", "x"}, {"Scope", "x"}, {"1", "x"}, {"", "x"}}, header_with("t"), query_with()},
      // Empty values are left out.
      {{{"type", ""}, {"ql", ""}, {"csid", ""}, {"scope", ""}},
       "@RDMHEADER { -\nrdm-version{3}:\t1.0\n}\n\n\n\n",
       query_with()},
      // The bytes of values are counted and kept.
      {{{"type", "}\n\n@X { y\n"}, {"scope", "a\nb{2}:\tc\n"}},
       header_with("}\n\n@X { y\n"),
       query_with("scope{10}:\ta\nb{2}:\tc\n\n")},
      // The first of equal parameters counts.
      {{{"type", "one"}, {"type", "two"}, {"scope", "all"}, {"scope", "since"}},
       header_with("one"),
       query_with("scope{3}:\tall\n")},
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

TEST_F(RdmQuery, FlushesBuffersThatMovedToAFile) {
  const std::string value(40000, 'x');
  EXPECT_EQ(convert({{"type", value}, {"scope", value}}, 32768), nullptr);
  for (const csio *io : {header.get(), query.get()}) {
    EXPECT_EQ(io->flags, 0x10u);
    EXPECT_EQ(io->wbuf_len, 0);
    EXPECT_EQ(io->finished, 0) << "the caller finishes its buffers";
  }
  EXPECT_EQ(contents(header.get()), header_with(value));
  EXPECT_EQ(contents(query.get()), query_with("scope{40000}:\t" + value + "\n"));
}

}  // namespace
