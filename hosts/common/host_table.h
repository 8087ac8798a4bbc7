// SPDX-License-Identifier: MIT
/// The function table that a host binds: the POSIX table, with the entries for requests, answers, reports and exits
/// replaced. The POSIX entries for reading input and request headers work on exchanges unchanged; statuses, heads and
/// answers are written to the exchange. Beside the table, it sends slices (qxapi/slice.h).
#ifndef HOSTS_COMMON_HOST_TABLE_H
#define HOSTS_COMMON_HOST_TABLE_H

#include <functional>
#include <string_view>

#include <qxapi/qxapi.h>

namespace rdm::hosts {

/// Report is one line for a host's error log. `client` is the client's address, or empty. `text` is one line of at most
/// 8191 bytes in which log_text has escaped control characters and bytes beyond ASCII. `request` is the value of the
/// variable request_id_variable, or empty.
struct Report {
  int degree;
  std::string_view function;
  std::string_view client;
  std::string_view text;
  std::string_view request = {};
};
using Reporter = std::function<void(const Report &)>;

/// bind_host builds the table on `base` and binds it. It must be called once, before other threads start. `reporter`
/// receives the plug-in's reports. It may be called from every thread that calls the plug-in, from the thread that
/// reopens logs, and from the threads of the logs.
///
/// Lines for the plug-in's logs (write_log) never block on a full pipe: each file opened for appending gets a LogFile,
/// which reports through `reporter` how many lines it dropped.
void bind_host(Reporter reporter, const qxapi_host &base = *qxapi_posix_host());

/// resource_failures returns how many calls of the table by the calling thread have failed for lack of memory or
/// because a file could not be created, written, read or positioned. The plug-in continues after such a failure, so its
/// answer may be incomplete without saying so.
/// Some failures are not counted, because no answer is made of their result or the plug-in reports them itself: stat()
/// and opening a file for reading, reading a directory (EISDIR), seeking in a pipe (ESPIPE), a line dropped by a log. A
/// missing directory for temporary files is counted.
long resource_failures();

/// last_resource_failure returns the errno of the last of them.
int last_resource_failure();

/// reopen_logs reopens, by name, each file that the plug-in has opened for appending and not closed; its descriptor
/// number stays the same. If a file cannot be reopened, this is reported and the log continues in the old file. It may
/// be called from any thread.
void reopen_logs();

/// run_exits calls the plug-in's registered exit functions in the order of registration, and forgets them.
void run_exits();

}  // namespace rdm::hosts

#endif
