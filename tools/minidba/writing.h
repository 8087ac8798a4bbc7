/// A catalog that a verb is about to change, unless it only says what it would do.
#ifndef MINIDBA_WRITING_H
#define MINIDBA_WRITING_H

#include <optional>

#include "tools/minidba/commit.h"
#include "tools/minidba/options.h"

namespace minidba {

/// lock_for takes the lock of the catalog that the options name; nothing in a dry run. A catalog that must be there and
/// is not is a Failure, and gets no lock file beside it.
std::optional<Lock> lock_for(const Options &options, const Console &console, Absent absent);

/// Writing holds the catalog's lock with its scope. A dry run takes no lock and writes nothing. What a commit copies is
/// held against the index of the catalog; a damaged record is a Failure, or left out where the options say so.
class Writing {
 public:
  explicit Writing(const Options &options, const Console &console, Absent absent = Absent::error);

  /// begin comes before the first change: it writes the URL map anew if there is none of this snapshot with a checksum,
  /// or if it is damaged, which standard error then says. A dry run goes by the records instead. A catalog that must be
  /// there has begun.
  void begin();
  const Catalog &catalog() const { return catalog_; }
  bool is_dry() const { return !lock_; }
  /// stamp gives the descriptions that are undated their time of change: that of the commit, which follows.
  void stamp(Changes &changes, const Console &console) const;
  /// commit makes the changes the catalog's state.
  void commit(const Changes &changes, uint32_t next_number, const Console &console) const;
  /// rebuild writes the catalog anew without the descriptions that the changes drop.
  void rebuild(const Changes &dropped, const Console &console) const;

 private:
  const Console &console_;
  std::optional<Lock> lock_;
  Catalog catalog_;
};

}  // namespace minidba

#endif
