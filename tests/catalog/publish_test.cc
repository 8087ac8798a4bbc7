// SPDX-License-Identifier: MIT
/// Publishing a database together with its index, and mending what a killed publisher has left.
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"
#include "catalog/maintenance.h"
#include "catalog/os/error.h"
#include "catalog/transaction.h"
#include "support/files.h"

using namespace rdm;

namespace {

using catalog::Catalog;
using catalog::IfMissing;
using catalog::Lock;
using catalog::WriteBatch;
using catalog::WriteTransaction;
using support::read_file;
using support::write_file;
using testing::HasSubstr;

std::string expiring_record(int i, const std::string &expires = "never") {
  return catalog::print(catalog::parse(rd(url(i), {{"rd-expires", expires}, {"title", "T"}})).get());
}

class Publishing : public testing::Test {
 protected:
  /// publish puts the descriptions `first` to `last`.
  void publish(int first, int last) const {
    const Catalog old(path(), IfMissing::empty);
    WriteBatch batch(old);
    for (int i = first; i <= last; ++i) batch.put(static_cast<uint32_t>(i), url(i), expiring_record(i));
    catalog::publish(lock_, old, batch, static_cast<uint32_t>(last) + 1);
  }

  /// publish_without_index publishes and then puts the old index back, as if the publisher was killed before its
  /// rename.
  void publish_without_index(int first, int last) const {
    const std::string old = read_file(index());
    publish(first, last);
    write_file(index(), old);
    std::filesystem::remove(path(".url"));
  }

  /// right_index returns the index of the records as they are.
  std::string right_index() const {
    return catalog::sorted_index(catalog::index_entries(Catalog(path()), [](const auto &, auto) {}));
  }

  std::string path(const std::string &suffix = "") const { return files_.path(suffix); }
  std::string index() const { return path(".idx"); }

  CatalogFiles files_;
  Lock lock_{files_.path()};
};

TEST_F(Publishing, WritesTheIndexOfTheNewRecords) {
  publish(1, 3);
  EXPECT_EQ(read_file(index()), right_index());
  publish(3, 500);
  EXPECT_EQ(read_file(index()), right_index());
  EXPECT_EQ(Catalog(path()).number_of(url(400)), 400u);
  EXPECT_FALSE(has_other_index(Catalog(path())));
  const auto verdict = files_.run({"verify"});
  EXPECT_EQ(verdict.out, "sound: 500 descriptions, 500 index entries\n") << verdict.errors;
  EXPECT_THAT(files_.files(),
              testing::UnorderedElementsAre("catalog.db", "catalog.db.idx", "catalog.db.lock", "catalog.db.url"));
}

TEST_F(Publishing, LeavesCurrentFilesAlone) {
  publish(1, 3);
  const auto inode = [&](const std::string &name) { return catalog::status_of(name)->st_ino; };
  const auto database = inode(path()), old = inode(index());
  const Catalog same(path());
  catalog::publish(lock_, same, WriteBatch(same), 4);
  EXPECT_EQ(inode(path()), database);
  EXPECT_EQ(inode(index()), old);
}

TEST_F(Publishing, WritesTheIndexOfRecordsThatAnotherCommandHasChanged) {
  publish(1, 3);
  {
    const Catalog old(path());
    WriteBatch batch(old);
    batch.put(4, url(4), expiring_record(4));
    commit(lock_, old, batch, 5);
  }
  ASSERT_NE(read_file(index()), right_index());
  const Catalog now(path());
  catalog::publish(lock_, now, WriteBatch(now), 5);
  EXPECT_EQ(read_file(index()), right_index());
  catalog::publish(lock_, now, WriteBatch(now), 5);
  EXPECT_EQ(read_file(index()), right_index());
}

TEST_F(Publishing, RefusesARecordThatContradictsTheIndex) {
  publish(1, 3);
  files_.put(catalog::database_key(2), expiring_record(2, "nevex"));
  const Catalog now(path());
  const std::string old = read_file(index());
  EXPECT_THROW(catalog::publish(lock_, now, WriteBatch(now), now.next_number()), catalog::Failure);
  EXPECT_EQ(read_file(index()), old);
}

TEST_F(Publishing, AKilledPublishersIndexIsMendedByTheNextTransaction) {
  publish(1, 3);
  publish_without_index(3, 5);
  ASSERT_NE(read_file(index()), right_index());
  EXPECT_TRUE(has_other_index(Catalog(path())));
  write_file(path(".idx.new"), "left by the killed publisher");
  { const Lock released(std::move(lock_)); }
  std::vector<std::string> messages;
  catalog::WriteSettings settings;
  settings.damage = [&](const std::string &text) { messages.push_back(text); };
  settings.dry_run = true;
  { const WriteTransaction dry(path(), settings); }
  EXPECT_TRUE(has_other_index(Catalog(path()))) << "a dry run changes nothing";
  settings.dry_run = false;
  { const WriteTransaction next(path(), settings); }
  EXPECT_EQ(read_file(index()), right_index());
  EXPECT_FALSE(has_other_index(Catalog(path())));
  EXPECT_FALSE(support::file_exists(path(".idx.new")));
  EXPECT_THAT(messages, testing::ElementsAre("mended: " + index() +
                                             ": it was not the index of this database, and is written again from the "
                                             "records"));
}

TEST_F(Publishing, AMissingIndexIsMendedByTheNextTransaction) {
  publish(1, 3);
  const std::string right = read_file(index());
  std::filesystem::remove(index());
  { const Lock released(std::move(lock_)); }
  std::vector<std::string> messages;
  catalog::WriteSettings settings;
  settings.damage = [&](const std::string &text) { messages.push_back(text); };
  { const WriteTransaction next(path(), settings); }
  EXPECT_EQ(read_file(index()), right);
  EXPECT_THAT(messages,
              testing::ElementsAre("mended: " + index() + ": it was missing, and is written again from the records"));
}

TEST_F(Publishing, TheFirstIndexOfACatalogIsMendedToo) {
  publish(1, 3);
  const std::string right = read_file(index());
  std::filesystem::remove(index());
  EXPECT_TRUE(mend_index(lock_, Catalog(path())));
  EXPECT_EQ(read_file(index()), right);
  EXPECT_FALSE(mend_index(lock_, Catalog(path())));
}

TEST_F(Publishing, VerifyReportsAnIndexOfAnotherState) {
  publish(1, 3);
  publish_without_index(3, 5);
  const std::string text =
      "minidba: the index is not the one that was published with the database: a command was interrupted between "
      "two renames, or another program has changed one of them; the next command that changes the catalog writes it, "
      "or run minidba index\n";
  const auto verdict = files_.run({"verify"});
  EXPECT_EQ(verdict.errors, text);
  EXPECT_EQ(verdict.out, "sound: 5 descriptions, 3 index entries, no URL map, index older than the database\n");
  std::filesystem::remove(index());
  const auto missing = support::run(files_.command({"verify"}));
  EXPECT_EQ(missing.errors, text);
  EXPECT_EQ(missing.out, "sound: 5 descriptions, no index, no URL map\n");
}

TEST_F(Publishing, NothingIsMendedFromRecordsThatHaveChangedSince) {
  publish(1, 3);
  publish_without_index(3, 5);
  files_.put(catalog::database_key(9), expiring_record(9));
  const std::string old = read_file(index());
  EXPECT_FALSE(mend_index(lock_, Catalog(path())));
  EXPECT_EQ(read_file(index()), old);
}

TEST_F(Publishing, ADamagedRecordDoesNotKeepATransactionFromOpening) {
  publish(1, 3);
  publish_without_index(3, 5);
  files_.put(catalog::database_key(2), "no object");
  { const Lock released(std::move(lock_)); }
  std::vector<std::string> messages;
  catalog::WriteSettings settings;
  settings.damage = [&](const std::string &text) { messages.push_back(text); };
  settings.prepare = [](Catalog &opened) { opened.skip_damaged([](const std::string &) {}); };
  const WriteTransaction next(path(), settings);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_THAT(messages[0], HasSubstr("the index is not of this database and cannot be mended: damaged record 2"));
}

TEST_F(Publishing, ExpiryCountsTheNewRecordsOfABatch) {
  publish(1, 2);
  const std::string past = "Thu, 01 Jan 1998 00:00:00 GMT";
  const Catalog old(path());
  WriteBatch batch(old);
  batch.put(1, url(1), expiring_record(1, past));
  batch.put(3, url(3), expiring_record(3, past));
  batch.put(4, url(4), expiring_record(4));
  EXPECT_EQ(erase_expired(old, 1000000000, batch), 2);
  catalog::publish(lock_, old, batch, 5);
  const Catalog now(path());
  EXPECT_EQ(now.get(1), std::nullopt);
  EXPECT_EQ(now.get(2), expiring_record(2));
  EXPECT_EQ(now.get(3), std::nullopt);
  EXPECT_EQ(now.get(4), expiring_record(4));
  EXPECT_EQ(now.number_of(url(3)), std::nullopt);
  EXPECT_EQ(read_file(index()), right_index());
}

}  // namespace
