// SPDX-License-Identifier: MIT
#include "catalog/record.h"

#include <gtest/gtest.h>

using namespace rdm;
using namespace rdm::catalog;

namespace {

std::string attribute(const std::string &name, const std::string &value) {
  return attribute_head(name, value.size()) + value + '\n';
}

std::string described(const std::string &attributes) { return "@DOCUMENT { http://localhost/\n" + attributes + "}\n"; }

TEST(UndatedRecord, HasOnePlaceholderAtItsOffset) {
  const std::string line = attribute("rd-last-changed", date_of(0));
  for (const std::string &attributes :
       {std::string(), attribute("rd-last-changed", "1") + attribute("a", "1") + attribute("RD-Last-Changed", "2"),
        attribute("a", line) + attribute("b", '\n' + line) + attribute("z", date_of(0)) + line +
            attribute("c", line)}) {
    const SoifPtr object = parse(described(attributes));
    Undated undated = print_undated(object.get());
    EXPECT_EQ(undated.record.substr(undated.date_offset, date_size), date_of(0));
    undated.record.replace(undated.date_offset, date_size, date_of(86400));
    const SoifPtr dated = parse(undated.record);
    EXPECT_EQ(change_time(dated.get()), 86400) << undated.record;
    EXPECT_EQ(soif_delete(dated.get(), "rd-last-changed"), 0);
    EXPECT_NE(soif_delete(dated.get(), "rd-last-changed"), 0);
  }
}

TEST(UndatedRecord, IsAVersionOfRecordsThatDifferInTheirTimeAlone) {
  const std::string a = attribute("a", "1"), b = attribute("b", "2"),
                    date = attribute("rd-last-changed", date_of(86400));
  const Undated undated = print_undated(parse(described(a + b)).get());
  std::string record = undated.record;
  EXPECT_TRUE(is_version_of(record, undated));
  record.replace(undated.date_offset, date_size, date_of(86400));
  EXPECT_TRUE(is_version_of(record, undated));
  EXPECT_TRUE(is_version_of(described(a + b), undated));
  EXPECT_TRUE(is_version_of(described(b + a + date), undated));
  EXPECT_TRUE(is_version_of(described(a + attribute("rd-last-changed", "unknown") + b), undated));
  EXPECT_FALSE(is_version_of(described(a + date), undated));
  EXPECT_FALSE(is_version_of(described(a + attribute("b", "3") + date), undated));
  record[record.find("2\n")] = '3';
  EXPECT_FALSE(is_version_of(record, undated));
  EXPECT_FALSE(is_version_of("no object", undated));
}

}  // namespace
