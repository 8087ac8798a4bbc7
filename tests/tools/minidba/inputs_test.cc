// SPDX-License-Identifier: MIT
/// The files that update and import read.
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;

class Inputs : public testing::Test {
 protected:
  static std::string described(int number) {
    return rd("http://localhost/" + std::to_string(number), {{"title", std::to_string(number)}});
  }
  /// file returns the path of a file with these bytes.
  std::string file(const std::string &name, const std::string &bytes) const {
    support::write_file(catalog_.path(name), bytes);
    return catalog_.path(name);
  }
  std::string listed() const { return catalog_.run({"list", "--format", "tsv", "--attributes", "title"}).out; }

  CatalogFiles catalog_;
};

TEST_F(Inputs, UpdateReadsAllItsFilesInTheirOrder) {
  const std::string header = "@RDMHEADER { -\nrdm-version{3}:\t1.0\n}\n\n";
  const Finished finished =
      catalog_.run({"update", file(".1", header + described(1)), "-", file(".3", header + described(3) + described(1))},
                   described(2));
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "4\n");
  EXPECT_EQ(finished.errors, "minidba: 3 new, 0 changed, 1 unchanged, 0 rejected\n");
  EXPECT_EQ(listed(), "1\thttp://localhost/1\t1\n2\thttp://localhost/2\t2\n3\thttp://localhost/3\t3\n");
}

TEST_F(Inputs, StandardInputIsTheDefault) {
  EXPECT_EQ(catalog_.run({"update"}, described(1)).out, "1\n");
  EXPECT_EQ(catalog_.run({"update", "-"}, described(2)).out, "1\n");
  EXPECT_EQ(catalog_.run({"update", file(".3", described(3))}, described(4)).out, "1\n");
  EXPECT_EQ(listed(), "1\thttp://localhost/1\t1\n2\thttp://localhost/2\t2\n3\thttp://localhost/3\t3\n");
}

TEST_F(Inputs, ImportReadsOneFile) {
  catalog_.update(described(1) + described(2));
  const std::string backup = catalog_.path(".export");
  ASSERT_EQ(catalog_.run({"export", backup}).status, 0);
  catalog_.run({"delete", "http://localhost/1"});
  const Finished finished = catalog_.run({"import", "--replace", backup}, "not read");
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "2\n");
  EXPECT_EQ(listed(), "1\thttp://localhost/1\t1\n2\thttp://localhost/2\t2\n");
}

TEST_F(Inputs, AFileThatCannotBeReadIsNamedAndNothingChanges) {
  catalog_.update(described(1));
  const auto before = catalog_.records();
  const std::string good = file(".2", described(2));
  const std::pair<std::string, std::string> rows[] = {
      {"/nonexistent/new.soif", "No such file or directory"},
      {catalog_.directory(), "Is a directory"},
  };
  for (const auto &[name, reason] : rows)
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"update", good, name}, {"import", "--replace", name}}) {
      const Finished finished = catalog_.run(words);
      EXPECT_EQ(finished.status, 2) << name;
      EXPECT_EQ(finished.out, "") << name;
      EXPECT_EQ(finished.errors, "minidba: cannot read " + name + ": " + reason + "\n");
      EXPECT_EQ(catalog_.records(), before);
    }
}

}  // namespace
