// SPDX-License-Identifier: MIT
/// Model tests: random operations on an implementation and on a plain model of it.
///
/// A test generates a list of operations with RapidCheck, applies each to both, and compares their results and
/// contents. A list that shows a difference is shrunk and printed with it.
#ifndef TESTS_SUPPORT_MODEL_H
#define TESTS_SUPPORT_MODEL_H

#include <rapidcheck.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/environment.h"

namespace rdm::support {

/// model_cases returns the number of lists to try: RDM_MODEL_CASES or the default.
inline int model_cases(int usual) { return number_from("RDM_MODEL_CASES", usual); }

/// check_model checks a property for model_cases random cases. RC_PARAMS sets the other parameters, such as the seed.
template <typename Property>
void check_model(int usual_cases, const Property &property) {
  const testing::TestInfo &test = *testing::UnitTest::GetInstance()->current_test_info();
  const std::string name = std::string(test.test_suite_name()) + '.' + test.name();
  rc::detail::TestParams params = rc::detail::configuration().testParams;
  params.maxSuccess = model_cases(usual_cases);
  const auto result = rc::detail::checkTestable(property, rc::detail::TestMetadata{name, name}, params);
  if (result.template is<rc::detail::SuccessResult>()) return;
  std::ostringstream text;
  rc::detail::printResultMessage(result, text);
  ADD_FAILURE() << text.str() << "\nTo try the same cases again: RC_PARAMS=\"seed=" << params.seed
                << "\" RDM_MODEL_CASES=" << params.maxSuccess;
}

/// check_operations applies random lists of operations, each to a new Case, which compares after every operation and at
/// the end.
template <typename Case, typename Operations>
void check_operations(int usual_cases, const Operations &operations) {
  check_model(usual_cases, [&] {
    const auto list = *rc::gen::container<std::vector<typename Operations::ValueType>>(operations).as("operations");
    Case test;
    for (const auto &operation : list) test.apply(operation);
    test.end();
  });
}

/// same fails a case unless the implementation has the value of the model.
template <typename Got, typename Expected>
void same(const char *what, const Got &got, const Expected &expected) {
  if (got == expected) return;
  const std::string text =
      what + (": " + testing::PrintToString(got) + " instead of " + testing::PrintToString(expected));
  RC_FAIL(text);
}

/// same_bytes does this for long strings and reports the first byte that differs.
inline void same_bytes(const char *what, const std::string &got, const std::string &expected) {
  if (got == expected) return;
  const auto shorter = static_cast<std::ptrdiff_t>(std::min(got.size(), expected.size()));
  const auto at = std::mismatch(got.begin(), got.begin() + shorter, expected.begin()).first - got.begin();
  std::ostringstream text;
  text << what << ": " << got.size() << " bytes instead of " << expected.size() << ", different from byte " << at;
  RC_FAIL(text.str());
}

}  // namespace rdm::support

#endif
