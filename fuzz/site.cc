// SPDX-License-Identifier: MIT
#include "fuzz/site.h"

#include "dba/guard.h"

namespace rdm::fuzz {
namespace {

constexpr char record[] = "@FILE { http://a/1\ntitle{3}:\tOne\nauthor-1{2}:\tMe\n}\n";
constexpr std::string_view index_bytes{
    "\x3e\xb1\xca\x0e\0\0\0\2"
    "\0\0\1\0\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\0"
    "\0\0\2\0\0\0\0\0\0\0\0\2\0\0\0\0\0\0\0\0",
    48};

}  // namespace

Site::Site() {
  write_catalog();
  directory_.write("server.rdm", "@RDMHEADER { -\nrdm-version{3}:\t1.0\n}\n\n@SERVER { -\n}\n");
  directory_.write("csid.conf", R"(csid="x-catalog://localhost:80/a" catalog-database=")" + directory_.path("db") +
                                    R"(" server-description=")" + directory_.path("server.rdm") + "\"\n");
  directory_.write("rdm.conf", R"(bindir="/nowhere" csid-config=")" + directory_.path("csid.conf") +
                                   R"(" csid-default="x-catalog://localhost:80/a")"
                                   "\n");
}

void Site::write_catalog() const {
  const DatabasePtr database(dba_open(directory_.path("db").c_str(), "w+"));
  for (const char *number : {"00000001", "00000002"}) {
    DBT key{const_cast<char *>(number), 8};
    const DBT value{const_cast<char *>(record), sizeof record - 1};
    require(dba_put(database.get(), &key, &value) == 0, "dba_put failed");
  }
  directory_.write("db.idx", index_bytes);
}

}  // namespace rdm::fuzz
