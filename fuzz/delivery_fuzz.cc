// SPDX-License-Identifier: MIT
/// Reads any bytes as a submission. Objects must follow each other without overlapping; the kept text of a refused
/// object, and the printed text of an accepted one, must parse the same again.

#include <fcntl.h>

#include <algorithm>

#include "catalog/record.h"
#include "catalog/stream/dump_format.h"
#include "catalog/stream/soif_stream.h"
#include "fuzz/fuzz.h"
#include "qxapi/guard.h"

using namespace rdm;
using catalog::ObjectView;

namespace {

void check_accepted(ObjectView &object, uint32_t number) {
  catalog::drop_number(object);
  const std::string text = object.print(), numbered = catalog::with_number(text, number);
  std::optional<ObjectView> again = ObjectView::read(numbered);
  fuzz::require(again && catalog::number_in(*again) == number, "the number added by an export is not read back");
  catalog::drop_number(*again);
  fuzz::require(again->print() == text, "export and import changed a description");
}

/// check_refused requires that the parser cannot read a refused object. The stream is stricter than the parser about
/// names, and requires an object to be closed.
void check_refused(const std::string &path, const catalog::SoifStream::Item &item) {
  if (item.object || item.reason.starts_with("attribute name ") || item.reason == "not closed") return;
  const StdioPtr file = open_stdio(path.c_str());
  std::fseek(file.get(), static_cast<long>(item.offset), SEEK_SET);
  fuzz::require(SoifReader(file.get()).next() == nullptr, "the parser reads a refused object");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const fuzz::MemoryFile bytes(fuzz::text(data, size));
  const HostFileGuard input(::open(bytes.path().c_str(), O_RDONLY | O_CLOEXEC));
  catalog::SoifStream stream(input.get(), bytes.path());
  int64_t end = 0;
  while (auto item = stream.next()) {
    fuzz::require(item->offset >= end && item->end > item->offset && item->end <= stream.size(),
                  "an object has wrong offsets");
    end = item->end;
    fuzz::require(!item->object == !item->reason.empty(), "an item has both an object and a reason, or neither");
    fuzz::require(
        stream.bytes_of(*item) ==
            fuzz::text(data, size).substr(static_cast<size_t>(item->offset), static_cast<size_t>(end - item->offset)),
        "bytes_of returned other bytes");
    if (item->object) check_accepted(*item->object, static_cast<uint32_t>(item->number));
    check_refused(bytes.path(), *item);
    const std::string_view before = fuzz::text(data, size).substr(0, static_cast<size_t>(item->offset));
    fuzz::require(stream.line_of(item->offset) == 1 + std::count(before.begin(), before.end(), '\n'),
                  "line_of returned another line");
  }
  return 0;
}
