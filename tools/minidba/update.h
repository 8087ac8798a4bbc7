/// The verb update: a stream of descriptions becomes part of the catalog.
#ifndef MINIDBA_UPDATE_H
#define MINIDBA_UPDATE_H

#include <cstdint>
#include <ctime>
#include <iosfwd>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/minidba/soif_stream.h"
#include "tools/minidba/url_map.h"

namespace minidba {

/// Summary counts what became of the objects of a stream.
struct Summary {
  int64_t added = 0, changed = 0, unchanged = 0, rejected = 0;
  int64_t accepted() const { return added + changed + unchanged; }
};

/// Update gathers the changes that a stream makes to a catalog, in a scratch file, and writes the next snapshot.
/// The catalog's lock is held meanwhile.
class Update {
 public:
  Update(std::string database, time_t now);

  /// take judges one object of the stream; what is wrong with a rejected one goes to `errors`.
  void take(SoifStream::Item item, std::ostream &errors);
  /// commit makes the changes the catalog's state. A catalog that is not there yet is made even without any.
  void commit();
  const Summary &summary() const { return summary_; }

 private:
  struct Change {
    uint32_t number;
    ScratchFile::Extent record;
    bool is_new;
  };

  void accept(SOIF *object);
  std::optional<std::string> current(uint32_t number) const;
  void store(const std::string &url, uint32_t number, bool is_new, const std::string &record);
  void each_record(const HashTable::Visit &visit) const;

  std::string database_;
  time_t now_;
  std::optional<HashTable> old_;
  UrlMap urls_;
  ScratchFile records_;
  std::unordered_map<std::string, uint32_t> new_urls_;
  std::unordered_map<uint32_t, Change> changes_;
  uint32_t next_number_;
  Summary summary_;
};

/// update runs the verb: the stream on `input`, the number accepted to `out`, everything else to `errors`.
void update(const std::string &database, int input, std::ostream &out, std::ostream &errors);

}  // namespace minidba

#endif
