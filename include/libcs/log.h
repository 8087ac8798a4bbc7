// SPDX-License-Identifier: MIT
/*
 * The diagnostic log: one line per diagnostic, stamped with local time, process id and thread slot, to a file, to
 * standard output or to standard error.
 *
 * It is silent until cslog_init gives it a level above 0 and a destination. A call site writes
 *
 *     CSLOG(CSLOG_WARNING, "adt", "Unknown %d items on linked list?\n", count);
 *
 * where the module is the name of the source file without its extension. Any thread may log, without locks: what a call
 * site says about itself passes through one of 32 slots, chosen by thread id, and a line reaches a file by one write.
 * Threads whose ids agree modulo 32 may mix up their kinds and source lines, never their messages. cslog_init,
 * cslog_set_level and cslog_terminate are for start-up and shutdown, when no other thread logs.
 */
#ifndef LIBCS_LOG_H
#define LIBCS_LOG_H

#include <qxapi/qxapi.h>

QX_BEGIN

/// _cslog_level is the verbosity: call sites log only when it is above 0. Initially 0.
extern int32_t _cslog_level;

/// _cslog_module is a selector for programs that share the log; the library never reads it. Initially 1.
extern int32_t _cslog_module;

/// The kinds of line and what they put between the time stamp and the message. Any other kind reads as CSLOG_NOTE.
enum {
  CSLOG_NOTE = 0,    /* " PID@SLOT:\t " */
  CSLOG_SOURCE = 1,  /* " PID@SLOT: (FILE:LINE):\t " */
  CSLOG_WARNING = 2, /* " PID@SLOT: WARNING: " */
  CSLOG_ERROR = 3    /* " PID@SLOT: ERROR: " */
};

/// CSLOG writes one diagnostic when the level is above 0: kind, module name, format, arguments. A disabled log costs
/// one comparison. Messages carry their own newline.
#define CSLOG(kind, module, ...)                     \
  do {                                               \
    if (_cslog_level > 0) {                          \
      _cslog_set_params((kind), (module), __LINE__); \
      _cslog_do_print(__VA_ARGS__);                  \
    }                                                \
  } while (0)

/// _cslog_set_params notes what the calling thread's next line is: its kind, its source file, which is borrowed and may
/// be null, and its source line. Returns the host's id of the thread.
int _cslog_set_params(int32_t kind, const char *file, int32_t line) QX_NOEXCEPT;

/// _cslog_do_print writes one line: "[16/Nov/2026:03:41:07]", the prefix of the thread's kind and the formatted
/// message. A directory in front of the source file is left out; a null file or format shows as "(null)", an empty one
/// as "(empty)". Time stamp and prefix are cut at 511 bytes. A line is cut at 8191 bytes, wherever it goes, and then
/// ends in a newline if its format does. Without a destination it does nothing; errors in writing are ignored.
void _cslog_do_print(const char *format, ...) QX_NOEXCEPT QX_PRINTF(1, 2);

/// cslog_init sets the level and the destination: standard error for null or "stderr", standard output for "stdout",
/// else a file, which is opened for appending and, when the process runs as root, handed to the user "nobody". A file
/// that cannot be opened is reported on standard error and leaves the log without a destination. A file of an earlier
/// cslog_init is not closed; cslog_terminate does that.
void cslog_init(int32_t level, const char *destination) QX_NOEXCEPT;

/// cslog_set_level changes the level alone.
void cslog_set_level(int32_t level) QX_NOEXCEPT;

/// cslog_terminate closes the file or flushes the stream and leaves the log without a destination.
void cslog_terminate(void) QX_NOEXCEPT;

/// cslog_linestr returns a copy of `text` with a blank in place of each white-space character, so that a value of many
/// lines fits on one. Null gives an empty string. The caller releases it with host_free; null when memory fails.
char *cslog_linestr(const char *text) QX_NOEXCEPT;

QX_END

#endif
