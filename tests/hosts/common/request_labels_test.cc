// SPDX-License-Identifier: MIT
#include "hosts/common/request_labels.h"

#include "support/memory_host.h"

using namespace rdm;

namespace {

class RequestLabelsTest : public support::HostTest {};

TEST_F(RequestLabelsTest, AreWhatThePluginLeavesInTheVariables) {
  hosts::Exchange exchange;
  exchange.variable("rdm-type", "rd-request");
  exchange.variable("rdm-csid", "x-catalog://localhost:80/books");
  exchange.variable("rdm-hits", "2147483648");
  const hosts::RequestLabels labels = hosts::read_labels(exchange);
  EXPECT_EQ(labels.type, "rd-request");
  EXPECT_EQ(labels.catalog, "x-catalog://localhost:80/books");
  EXPECT_EQ(labels.hits, 2147483648);
}

TEST_F(RequestLabelsTest, AreEmptyIfThePluginLeavesNothing) {
  hosts::Exchange exchange;
  EXPECT_EQ(hosts::read_labels(exchange).type, "");
  EXPECT_EQ(hosts::read_labels(exchange).catalog, "");
  EXPECT_EQ(hosts::read_labels(exchange).hits, std::nullopt);
  exchange.variable("rdm-hits", "12x");
  EXPECT_EQ(hosts::read_labels(exchange).hits, std::nullopt);
}

}  // namespace
