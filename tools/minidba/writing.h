/// A catalog that a verb is about to change, unless it only says what it would do.
#ifndef MINIDBA_WRITING_H
#define MINIDBA_WRITING_H

#include <optional>

#include "tools/minidba/commit.h"
#include "tools/minidba/options.h"

namespace minidba {

/// Writing holds the catalog's lock with its scope. A dry run takes no lock and writes nothing.
class Writing {
 public:
  explicit Writing(const Options &options, Absent absent = Absent::error);

  const Catalog &catalog() const { return catalog_; }
  bool is_dry() const { return !lock_; }
  /// commit makes the changes the catalog's state.
  void commit(const Changes &changes, uint32_t next_number, const Console &console) const;
  /// rebuild writes the catalog anew as it is.
  void rebuild(const Console &console) const;

 private:
  std::optional<Lock> lock_;
  Catalog catalog_;
};

}  // namespace minidba

#endif
