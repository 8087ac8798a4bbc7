// SPDX-License-Identifier: MIT
#include "qxapi/posix.h"

using namespace rdm;

const qxapi_host *qxapi_posix_host(void) noexcept {
  static constexpr qxapi_host table = {
      .version = QXAPI_VERSION,
      .alloc = posix_host::allocate,
      .realloc = posix_host::reallocate,
      .free = posix_host::release,
      .strdup = posix_host::duplicate,
      .param_create = posix_host::param_create,
      .param_free = posix_host::param_free,
      .param_find = posix_host::param_find,
      .param_find_entry = posix_host::param_find_entry,
      .param_add = posix_host::param_add,
      .param_free_entry = posix_host::param_free_entry,
      .param_parse = posix_host::param_parse,
      .request_header = posix_host::request_header,
      .input_next = posix_host::input_next,
      .set_status = posix_host::set_status,
      .start_response = posix_host::start_response,
      .net_write = posix_host::net_write,
      .buffer_open = posix_host::buffer_open,
      .getline = posix_host::read_line,
      .buffer_close = posix_host::buffer_close,
      .buffer_send = posix_host::buffer_send,
      .open_read = posix_host::open_read,
      .open_write = posix_host::open_write,
      .open_append = posix_host::open_append,
      .open_readwrite = posix_host::open_readwrite,
      .read = posix_host::read_bytes,
      .write = posix_host::write_bytes,
      .write_log = posix_host::write_log,
      .seek = posix_host::seek,
      .close = posix_host::close_file,
      .stat = posix_host::file_status,
      .unlink = posix_host::remove_file,
      .crit_create = posix_host::crit_create,
      .crit_enter = posix_host::crit_enter,
      .crit_exit = posix_host::crit_exit,
      .register_exit = posix_host::register_exit,
      .report_error = posix_host::report_error,
      .last_error_text = posix_host::last_error_text,
      .format = posix_host::format,
      .format_time = posix_host::format_time,
      .itoa = posix_host::decimal,
      .gmtime = posix_host::utc,
      .unescape = posix_host::unescape,
      .thread_id = posix_host::thread_id,
  };
  return &table;
}
