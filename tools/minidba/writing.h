// SPDX-License-Identifier: MIT
/// How the options of a verb have a catalog changed, with what its user is told meanwhile.
#ifndef MINIDBA_WRITING_H
#define MINIDBA_WRITING_H

#include "catalog/transaction.h"
#include "tools/minidba/options.h"

namespace rdm::minidba {

/// write_settings returns what the options say about a transaction. Options and console must outlive it.
WriteSettings write_settings(const Options &options, const Console &console, IfMissing if_missing = IfMissing::error);

/// date gives the undated descriptions of a batch their time of change, and warns when that is far ahead of the clock.
void date(const WriteTransaction &transaction, WriteBatch &batch, const Console &console);

/// commit and rebuild do as those of the transaction, with progress.
void commit(const WriteTransaction &transaction, const WriteBatch &batch, uint32_t next_number, const Console &console);
void rebuild(const WriteTransaction &transaction, const WriteBatch &dropped, const Console &console);

}  // namespace rdm::minidba

#endif
