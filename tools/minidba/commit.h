/// Making the next snapshot of a catalog.
#ifndef MINIDBA_COMMIT_H
#define MINIDBA_COMMIT_H

#include "tools/minidba/changes.h"

namespace minidba {

/// commit makes the changes the catalog's state: the next snapshots of its database and URL map take the places of the
/// old ones. `next_number` is the first that was never used. Where few records change, the files are copied and edited;
/// else they are written anew. Each description that is copied is checked as Catalog::each_to_copy does. A catalog that
/// is not there yet is made even without any change. A Failure
/// leaves the old catalog as it is, unless it says that the database is replaced: then the changes are the catalog's
/// state, and a map that is missing is made anew by the next writer.
///
/// `watch` is told of work that was done, in bytes, and how many there are to do.
using Watch = std::function<void(int64_t bytes, int64_t total)>;
void commit(
    const Lock &lock, const Catalog &catalog, const Changes &changes, uint32_t next_number,
    const Watch &watch = [](int64_t, int64_t) {});

/// check_copy throws what commit would throw over a damaged record, and writes nothing.
void check_copy(const Catalog &catalog, const Changes &changes);

/// rebuild_catalog writes database and URL map anew from the records alone, without those that are dropped. No two that
/// stay may have the same URL.
void rebuild_catalog(const Lock &lock, const Catalog &catalog, const Changes &dropped, const Watch &watch);

}  // namespace minidba

#endif
