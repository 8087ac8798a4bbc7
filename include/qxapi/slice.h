// SPDX-License-Identifier: MIT
/*
 * An optional operation of the host, beside its table: parts of an answer that it sends from a file that the plug-in
 * keeps open, such as a database, without a copy.
 *
 * A host that can do this binds its procedure after its table. The plug-in asks host_sends_slices, and otherwise writes
 * the bytes with host_net_write or host_buffer_send.
 */
#ifndef QXAPI_SLICE_H
#define QXAPI_SLICE_H

#include <qxapi/qxapi.h>

QX_BEGIN

/// host_place is the place of a record in a file: `size` bytes, at least 1, from `offset` on. `note` is for the plug-in
/// alone.
typedef struct host_place {
  int64_t offset;
  uint32_t size;
  uint32_t note;
} host_place;

/// host_slice is a list of records, which are sent one after the other without anything between them. `places` is a
/// file of host_place records, in memory order; the slice has `count` of them, at least 1, from the one with the number
/// `first` on. They say where the records lie in the file `records`. `length` is the sum of their sizes.
///
/// Both files are for reading, and belong to the caller, who may close them after the call. The places must not change
/// while an answer may need them. If `records` changes its size or its time before all is sent, or if the places and
/// the length do not fit, the host breaks the connection.
typedef struct host_slice {
  host_fd records;
  host_fd places;
  uint32_t first;
  uint32_t count;
  int64_t length;
} host_slice;

/// host_sends_slices returns 1 if the host sends slices, otherwise 0.
int host_sends_slices(void) QX_NOEXCEPT;

/// host_send_slice sends a slice to the client. Returns its length, or -1 with nothing sent; errno is ENOSYS if the
/// host sends no slices.
int64_t host_send_slice(host_net *socket, const host_slice *slice) QX_NOEXCEPT;

/// host_slice_sender sends a slice as host_send_slice does.
typedef int64_t (*host_slice_sender)(host_net *socket, const host_slice *slice);

/// qxapi_bind_slices makes `sender` the procedure of the whole process; null: the host sends no slices, as after each
/// qxapi_bind. Call it before other threads use the library.
void qxapi_bind_slices(host_slice_sender sender) QX_NOEXCEPT;

QX_END

#endif
