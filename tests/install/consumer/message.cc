// Uses all four libraries: a message header (rdm), printed into a buffer (cs) and stored in a database without a file
// (dba), under a key from the host (qxapi).
#include <fcntl.h>

#include <cstdio>

#include <dba/dba.h>
#include <libcs/adt.h>
#include <libcs/cs.h>
#include <qxapi/qxapi.h>
#include <service/alias.h>
#include <service/csid.h>
#include <service/rdm.h>
#include <service/schema.h>

namespace {

int print_message(csio *message) {
  rdmhdr *header = nullptr;
  rdmhdr_create(&header);
  rdmhdr_reset(header);
  header->type = RDM_STATUS_RESPONSE;
  const int status = rdmhdr_print(header, message);
  rdmhdr_destroy(header);
  return status;
}

int store_and_show(DB *database, csio *message) {
  DBT key{host_strdup("message"), 7};
  DBT value{message->data, static_cast<size_t>(message->length)};
  DBT found{};
  if (dba_put(database, &key, &value) != 0 || dba_get(database, &key, &found) != 0) return 1;
  host_free(key.data);
  std::printf("%.*s", static_cast<int>(found.size), static_cast<const char *>(found.data));
  return 0;
}

}  // namespace

int main() {
  csio *message = nullptr;
  csio_create(&message);
  DB *database = QX_dbopen(nullptr, O_RDWR | O_CREAT, 0600, DB_HASH, nullptr);
  if (message == nullptr || database == nullptr) return 1;
  const int status = print_message(message) + store_and_show(database, message);
  csio_destroy(message);
  return status + dba_close(database);
}
