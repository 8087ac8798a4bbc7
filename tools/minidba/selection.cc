#include "tools/minidba/selection.h"

#include <algorithm>
#include <charconv>

#include "tools/minidba/failure.h"
#include "tools/minidba/record.h"

namespace minidba {
namespace {

soif_ptr checked(soif_ptr object, const Catalog &catalog, uint32_t number, std::string_view record) {
  if (!object) throw catalog.refused(number, record, "it is not a SOIF object");
  return object;
}

}  // namespace

std::optional<uint32_t> decimal(std::string_view word) {
  uint32_t number = 0;
  const char *end = word.data() + word.size();
  const auto result = std::from_chars(word.data(), end, number);
  return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

soif_ptr whole(const Catalog &catalog, uint32_t number, std::string_view record) {
  return checked(parse(record), catalog, number, record);
}

soif_ptr view(const Catalog &catalog, uint32_t number, std::string_view record, const std::vector<std::string> &names) {
  return checked(parse_only(record, names), catalog, number, record);
}

std::vector<uint32_t> numbers_where(const Catalog &catalog, Progress &progress, const Chosen &chosen) {
  std::vector<uint32_t> numbers;
  catalog.each([&](uint32_t number, std::string_view record) {
    if (chosen(number, record)) numbers.push_back(number);
    progress.advance(1, static_cast<int64_t>(record.size()));
  });
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

std::vector<uint32_t> numbers_to_copy(const Catalog &catalog, Progress &progress) {
  std::vector<uint32_t> numbers;
  catalog.each_to_copy([&](uint32_t number, std::string_view record) {
    numbers.push_back(number);
    progress.advance(1, static_cast<int64_t>(record.size()));
  });
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

}  // namespace minidba
