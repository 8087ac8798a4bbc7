/*
 * The diagnostic log.
 */
#ifndef LIBCS_LOG_H
#define LIBCS_LOG_H

#include <qxapi/qxapi.h>

QX_BEGIN

extern int32_t _cslog_level;
extern int32_t _cslog_module;
int _cslog_set_params(int32_t kind, const char *file, int32_t line) QX_NOEXCEPT;
void _cslog_do_print(const char *format, ...) QX_NOEXCEPT QX_PRINTF(1, 2);
void cslog_init(int32_t level, const char *destination) QX_NOEXCEPT;
void cslog_set_level(int32_t level) QX_NOEXCEPT;
void cslog_terminate(void) QX_NOEXCEPT;
char *cslog_linestr(const char *text) QX_NOEXCEPT;

/// Kinds of line.
enum { CSLOG_NOTE = 0, CSLOG_SOURCE = 1, CSLOG_WARNING = 2, CSLOG_ERROR = 3 };

/// CSLOG writes one diagnostic when the level is above 0: kind, module name, format, arguments. A disabled log costs
/// one comparison. Messages carry their own newline.
#define CSLOG(kind, module, ...)                     \
  do {                                               \
    if (_cslog_level > 0) {                          \
      _cslog_set_params((kind), (module), __LINE__); \
      _cslog_do_print(__VA_ARGS__);                  \
    }                                                \
  } while (0)

QX_END

#endif
