// SPDX-License-Identifier: MIT
/// Changing a catalog with the options of a verb, with progress and warnings.
#ifndef MINIDBA_WRITING_H
#define MINIDBA_WRITING_H

#include "catalog/transaction.h"
#include "tools/minidba/options.h"

namespace rdm::minidba {

/// write_settings returns the settings of a transaction. Options and console must outlive it.
WriteSettings write_settings(const Options &options, const Console &console, IfMissing if_missing = IfMissing::error);

/// date calls WriteTransaction::date, and warns if the time is ahead of the clock (is_ahead).
void date(const WriteTransaction &transaction, WriteBatch &batch, const Console &console);

/// commit and rebuild call the procedures of the transaction, and show progress.
void commit(const WriteTransaction &transaction, const WriteBatch &batch, uint32_t next_number, const Console &console);
void rebuild(const WriteTransaction &transaction, const WriteBatch &dropped, const Console &console);

}  // namespace rdm::minidba

#endif
