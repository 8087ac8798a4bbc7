// SPDX-License-Identifier: MIT
/// Reads any text as the configuration of the catalog services.

#include "fuzz/fuzz.h"
#include "service/csid.h"

using namespace rdm;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const fuzz::MemoryFile file(fuzz::text(data, size));
  fuzz::require(csid_init(file.path().c_str(), "x-catalog://localhost:80/a") == 0, "csid_init refused a readable file");
  for (const char *csid : {"x-catalog://localhost:80/a", "", "b"}) {
    const char *name = csid_findval("csid", csid);
    fuzz::require((name != nullptr) == (csid_find(csid) != nullptr), "csid_find and csid_findval disagree");
    fuzz::require(name == nullptr || std::string_view(name) == csid, "a service has another name");
    csid_finda2p(csid);
    csid_findp2a(csid);
  }
  csid_terminate();
  return 0;
}
