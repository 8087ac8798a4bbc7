#include "tools/minidba/selection.h"

#include <algorithm>

#include "tools/minidba/failure.h"
#include "tools/minidba/record.h"

namespace minidba {
namespace {

soif_ptr checked(soif_ptr object, const Catalog &catalog, uint32_t number) {
  if (!object) throw Failure("damaged record " + database_key(number) + " in " + catalog.path());
  return object;
}

}  // namespace

soif_ptr whole(const Catalog &catalog, uint32_t number, std::string_view record) {
  return checked(parse(record), catalog, number);
}

soif_ptr view(const Catalog &catalog, uint32_t number, std::string_view record, const std::vector<std::string> &names) {
  return checked(parse_only(record, names), catalog, number);
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

}  // namespace minidba
