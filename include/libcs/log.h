// SPDX-License-Identifier: MIT
/*
 * The diagnostic log: one line per diagnostic, stamped with local time, process id and thread slot, to a file, to
 * standard output or to standard error.
 *
 * It is silent until cslog_init gives it a level above 0 and a destination. A call site writes
 *
 *     CSLOG(CSLOG_WARNING, "adt", "Unknown %d items on linked list?\n", count);
 *
 * The module is the name of the source file without its extension. Any thread may log, without locks: kind and source
 * line of a call pass through one of 32 slots, chosen by thread id, and each line is written to a file with a single
 * write(). Threads with equal ids modulo 32 may exchange kinds and source lines, never messages. Call cslog_init,
 * cslog_set_level and cslog_terminate only while no other thread logs.
 */
#ifndef LIBCS_LOG_H
#define LIBCS_LOG_H

#include <qxapi/qxapi.h>

QX_BEGIN

/// _cslog_level is the verbosity, initially 0: call sites log only if it is above 0.
extern int32_t _cslog_level;

/// _cslog_module is for programs that share the log; the library never reads it. Initially 1.
extern int32_t _cslog_module;

/// The kinds of line and their text between time stamp and message. Other values mean CSLOG_NOTE.
enum {
  CSLOG_NOTE = 0,    /* " PID@SLOT:\t " */
  CSLOG_SOURCE = 1,  /* " PID@SLOT: (FILE:LINE):\t " */
  CSLOG_WARNING = 2, /* " PID@SLOT: WARNING: " */
  CSLOG_ERROR = 3    /* " PID@SLOT: ERROR: " */
};

/// CSLOG writes one diagnostic if the level is above 0: kind, module name, format, arguments. A disabled log costs one
/// comparison. The message must end in a newline.
#define CSLOG(kind, module, ...)                     \
  do {                                               \
    if (_cslog_level > 0) {                          \
      _cslog_set_params((kind), (module), __LINE__); \
      _cslog_do_print(__VA_ARGS__);                  \
    }                                                \
  } while (0)

/// _cslog_set_params sets the properties of the calling thread's next line: its kind, its source file, which is
/// borrowed and may be null, and its source line. Returns the host's id of the thread.
int _cslog_set_params(int32_t kind, const char *file, int32_t line) QX_NOEXCEPT;

/// _cslog_do_print writes one line: "[16/Nov/2026:03:41:07]", the prefix of the thread's kind and the formatted
/// message. The directory of the source file is omitted; a null file or format is printed as "(null)", an empty one as
/// "(empty)". Time stamp and prefix are cut at 511 bytes, the line at 8191; a cut line still ends in a newline if its
/// format does. Without a destination it does nothing; write errors are ignored.
void _cslog_do_print(const char *format, ...) QX_NOEXCEPT QX_PRINTF(1, 2);

/// cslog_init sets the level and the destination: standard error for null or "stderr", standard output for "stdout",
/// otherwise a file, which is opened for appending and, if the process runs as root, chowned to the user "nobody". If
/// the file cannot be opened, that is reported on standard error and the log has no destination. The file of an earlier
/// cslog_init is not closed; call cslog_terminate for that.
void cslog_init(int32_t level, const char *destination) QX_NOEXCEPT;

/// cslog_set_level sets the level only.
void cslog_set_level(int32_t level) QX_NOEXCEPT;

/// cslog_terminate closes the file or flushes the stream; the log then has no destination.
void cslog_terminate(void) QX_NOEXCEPT;

/// cslog_linestr returns a copy of `text` with each white-space character replaced by a blank, so that it fits on one
/// line. Null gives an empty string. The caller releases the copy with host_free; it is null if allocation fails.
char *cslog_linestr(const char *text) QX_NOEXCEPT;

QX_END

#endif
