// SPDX-License-Identifier: MIT
#include "catalog/known_records.h"

#include <string>

#include <gtest/gtest.h>

#include "catalog/record.h"

using namespace rdm;

namespace {

using catalog::date_of;

constexpr time_t known_time = 1'800'000'000, newest = known_time + 1000;

/// A name in capitals is not how we write the time; its lower-case twin is text at the end of a value.
std::string record_of_another_program(time_t time) {
  const std::string twin = catalog::attribute_head("rd-last-changed", catalog::date_size);
  return "@DOCUMENT { http://localhost/\n" + catalog::attribute_head("RD-Last-Changed", catalog::date_size) +
         date_of(time) + '\n' + catalog::attribute_head("text", twin.size()) + twin + "\n}\n";
}

TEST(KnownRecords, LookForADamagedTimeWithinTheRecordOnly) {
  const std::string before = record_of_another_program(known_time), now = record_of_another_program(known_time + 77);
  const catalog::KnownRecords known({catalog::entry_of(1, before, known_time), catalog::entry_of(2, "", newest)});
  EXPECT_EQ(known.fault_of(1, before), "");
  EXPECT_EQ(known.fault_of(1, now), "");
}

}  // namespace
