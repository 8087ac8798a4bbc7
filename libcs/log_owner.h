// SPDX-License-Identifier: MIT
/// The owner of the diagnostic log's file.
#ifndef LIBCS_LOG_OWNER_H
#define LIBCS_LOG_OWNER_H

/// _cslog_chown gives a file to a user and the user's group, and warns in the log when that cannot be done.
void _cslog_chown(const char *path, const char *user) noexcept;

#endif
