/// Any bytes as the index of a catalog, and a search in it. The first four bytes are the time searched for.

#include <algorithm>
#include <vector>

#include "fuzz/fuzz.h"
#include "qxapi/guard.h"
#include "service/csid.h"
#include "service/rdm.h"

namespace {

constexpr char csid[] = "x-catalog://localhost:80/a";

/// Catalog is a service whose index each input replaces.
struct Catalog {
  Catalog() {
    folder.write("csid.conf", std::string("csid=\"") + csid + "\" catalog-database=\"" + folder.path("db") + "\"\n");
    fuzz::require(csid_init(folder.path("csid.conf").c_str(), csid) == 0, "the configuration");
  }
  fuzz::Folder folder;
};

/// is_answer says, looking at every entry, whether a search in a sorted index may find this: an entry of just that
/// time, else the first later one. A search that comes to the last entry finds nothing to send, which is the count.
bool is_answer(const std::vector<uint32_t> &times, int64_t since, int32_t found) {
  const auto count = static_cast<int32_t>(times.size());
  const bool any = std::any_of(times.begin(), times.end(), [since](uint32_t time) { return time >= since; });
  if (found == -1) return !any;
  if (found == count) return count == 1 || times[times.size() - 2] < since;
  return found >= 0 && found < count && times[static_cast<size_t>(found)] >= since &&
         (found == 0 || times[static_cast<size_t>(found) - 1] <= since);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const Catalog catalog;
  std::string_view input = fuzz::text(data, size);
  const auto since = static_cast<int64_t>(fuzz::take(input, 4));
  catalog.folder.write("db.idx", input);
  cs_dbindex index{};
  const int result = cs_dbsearch_start(csid, &index);
  const host_ptr<cs_dbentry> entries(index.entries);
  if (result != 0) return 0;
  const int32_t found = cs_dbsearch(&index, since);
  fuzz::require(found >= -1 && found <= static_cast<int32_t>(index.count), "the position found");
  std::vector<uint32_t> times;
  for (uint32_t i = 0; i < index.count; ++i) times.push_back(index.entries[i].time);
  if (!times.empty() && std::is_sorted(times.begin(), times.end()))
    fuzz::require(is_answer(times, since, found), "what a search finds");
  return 0;
}
