// SPDX-License-Identifier: MIT
/// The function table that a host binds: the POSIX table with the entries replaced that concern requests, answers,
/// reports and exits. Requests are exchanges: the pre-read input and the header look-up of the POSIX table serve them
/// as they are; statuses, heads and answers go to the exchange.
#ifndef HOSTS_COMMON_HOST_TABLE_H
#define HOSTS_COMMON_HOST_TABLE_H

#include <functional>
#include <string_view>

#include <qxapi/qxapi.h>

namespace rdm::hosts {

/// Report is one line for a host's error log. `client` is the client's address, empty for none; `text` is one line of
/// at most 8191 bytes, in which log_text has escaped control characters and bytes beyond ASCII.
struct Report {
  int degree;
  std::string_view function;
  std::string_view client;
  std::string_view text;
};
using Reporter = std::function<void(const Report &)>;

/// bind_host binds the table. Reports of the plug-in go to `reporter`, which may be called from any thread that is
/// inside the plug-in, from the one that reopens logs and from those of the logs. `base` is what the table builds on.
/// To be called once, before any other thread.
///
/// Lines for the plug-in's logs (write_log) never wait for the reader of a pipe: each file opened for appending has a
/// LogFile, which says by the reporter how many lines it dropped.
void bind_host(Reporter reporter, const qxapi_host &base = *qxapi_posix_host());

/// losses counts how often the calling thread asked the table for memory, or to make, write, read or move in a file,
/// and did not get it. The plug-in goes on without what it asked for, so what it then answers may be incomplete without
/// saying so. Not counted is what the plug-in answers itself or what no answer consists of: a file that cannot be
/// examined or opened for reading, a directory that the plug-in reads as a file, a position asked of a pipe, a line not
/// taken by a log. A missing directory for temporary files is counted.
long resource_failures();

/// reopen_logs reopens what the plug-in has opened for appending and not closed, each under its name and its
/// descriptor. One that cannot be reopened goes on in the old file, and is reported. From any thread.
void reopen_logs();

/// run_exits calls the exits that the plug-in has registered, in the order of registration, and forgets them.
void run_exits();

}  // namespace rdm::hosts

#endif
