// SPDX-License-Identifier: MIT
/// A stream of descriptions becomes part of the catalog.
#ifndef CATALOG_STREAM_IMPORTER_H
#define CATALOG_STREAM_IMPORTER_H

#include <cstdint>
#include <string>

#include "catalog/stream/soif_stream.h"
#include "catalog/transaction.h"
#include "catalog/write_batch.h"

namespace rdm::catalog {

/// Summary counts what became of the objects of a stream.
struct Summary {
  int64_t added = 0, changed = 0, unchanged = 0, rejected = 0;
  int64_t accepted() const { return added + changed + unchanged; }
};

/// Importer turns a stream into changes of a catalog. The first description that is accepted begins the change of the
/// catalog; a stream without any leaves all files alone.
class Importer {
 public:
  explicit Importer(WriteTransaction &transaction);

  /// take judges one object of the stream and returns why it is rejected, nothing when it is not.
  std::string take(const SoifStream::Item &item);
  WriteBatch &batch() { return batch_; }
  /// next_number is known once a description was accepted.
  uint32_t next_number() const { return next_number_; }
  const Summary &summary() const { return summary_; }

 private:
  void begin();
  void accept(SOIF *object);
  uint32_t new_number();

  WriteTransaction &transaction_;
  WriteBatch batch_;
  uint32_t next_number_ = 0;
  bool has_begun_ = false;
  Summary summary_;
};

}  // namespace rdm::catalog

#endif
