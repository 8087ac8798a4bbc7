// SPDX-License-Identifier: MIT
/// Ownership of the diagnostic log's file.
#ifndef LIBCS_LOG_OWNER_H
#define LIBCS_LOG_OWNER_H

/// _cslog_chown changes the owner of a file to a user and the user's group. A failure is logged as a warning.
void _cslog_chown(const char *path, const char *user) noexcept;

#endif
