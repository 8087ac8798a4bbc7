// SPDX-License-Identifier: MIT
/// The sections of the table. Each measures those of its rows that the options want, and returns them.
#ifndef BENCH_SPEED_SECTIONS_H
#define BENCH_SPEED_SECTIONS_H

#include <vector>

#include "speed/sizes.h"
#include "speed/stage.h"
#include "speed/table.h"

namespace rdm::bench {

/// reading_rows measures harvests: of all, since a time, of one attribute, and by eight clients at once.
std::vector<Row> reading_rows(const Stage &stage, Sizes &sizes);

/// request_rows measures many small requests at once: one RD, and status.
std::vector<Row> request_rows(const Stage &stage, Sizes &sizes);

/// load_rows measures making a catalog with its index.
std::vector<Row> load_rows(const Stage &stage);

/// memory_rows measures what a server holds for harvests, and for clients that read nothing of theirs.
std::vector<Row> memory_rows(const Stage &stage);

/// change_rows measures updates of 1 %, and the first answers after them. The catalog is another one afterwards.
std::vector<Row> change_rows(const Stage &stage, Sizes &sizes);

}  // namespace rdm::bench

#endif
