// SPDX-License-Identifier: MIT
/// Importing a submission into a catalog.
#ifndef CATALOG_STREAM_IMPORTER_H
#define CATALOG_STREAM_IMPORTER_H

#include <cstdint>
#include <string>
#include <vector>

#include "catalog/stream/soif_stream.h"
#include "catalog/transaction.h"
#include "catalog/write_batch.h"

namespace rdm::catalog {

/// Summary counts the objects of a submission by their effect on the catalog.
struct Summary {
  int64_t added = 0, changed = 0, unchanged = 0, rejected = 0;
  int64_t accepted() const { return added + changed + unchanged; }
};

/// Importer collects the descriptions of a submission in a WriteBatch. It calls begin of the transaction at the first
/// accepted description, so that a submission without any changes no file.
class Importer {
 public:
  /// The transaction must outlive the importer.
  explicit Importer(WriteTransaction &transaction);

  /// take adds a description to the batch unless its content is unchanged. Returns the reason if it rejects the object,
  /// otherwise an empty text; it passes over the header. It drops minidba-number and rd-last-changed from the object.
  /// Throws a Failure at damage in the catalog or if no number is left.
  std::string take(SoifStream::Item &item);
  /// batch returns the changes. The caller sets their dates and commits them with next_number, which is valid if
  /// summary().accepted() is above 0.
  WriteBatch &batch() { return batch_; }
  uint32_t next_number() const { return next_number_; }
  const Summary &summary() const { return summary_; }
  /// taken returns the numbers of the accepted descriptions, in the order of the submission.
  const std::vector<uint32_t> &taken() const { return taken_; }

 private:
  void begin();
  void accept(ObjectView &object);
  uint32_t new_number();

  WriteTransaction &transaction_;
  WriteBatch batch_;
  uint32_t next_number_ = 0;
  bool has_begun_ = false;
  Summary summary_;
  std::vector<uint32_t> taken_;
};

}  // namespace rdm::catalog

#endif
