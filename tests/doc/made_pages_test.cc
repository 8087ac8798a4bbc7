// SPDX-License-Identifier: MIT
/// The manual pages and the comments for Doxygen that are made from a header.

#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;

namespace {

namespace fs = std::filesystem;

using ::testing::EndsWith;

const std::string opening = R"(/*
 * Boxes: each holds one text.
 *
 * Only one thread may use a box.
 */
#ifndef BOX_H
#define BOX_H

QX_BEGIN
)";

const std::string header = opening + R"(
/// box is what box_create makes.
typedef struct box {
  char *text; /* or null */
} box;

/* ---- Making. All of these allocate. ---- */

/// box_create returns a new box with a copy of `text`, or null. The kinds are:
///   - `text` null: an empty box;
///   - other texts, as by strdup().
box *box_create(const char *text) QX_NOEXCEPT;

/// box_free releases a box, box_drop only its text, by `fn`. A "\" is kept, and `*fn` too. See soif(5).
void box_free(box *b) QX_NOEXCEPT;
void box_drop(box *b, void (*fn)(void *, int)) QX_NOEXCEPT;

QX_END
)";

const std::string page = R"--(.Dd May 1, 2026
.Dt BOX_CREATE 3
.Os
.Sh NAME
.Nm box_create ,
.Nm box_free ,
.Nm box_drop
.Nd making
.Sh LIBRARY
libbox (\-lbox, pkg-config libbox)
.Sh SYNOPSIS
.In sample/box.h
.Ft "box *"
.Fo box_create
.Fa "const char *text"
.Fc
.Ft "void"
.Fo box_free
.Fa "box *b"
.Fc
.Ft "void"
.Fo box_drop
.Fa "box *b"
.Fa "void (*fn)(void *, int)"
.Fc
.Sh DESCRIPTION
Boxes: each holds one text.
.Pp
Only one thread may use a box.
.Pp
All of these allocate.
.Pp
.Fn box_create
returns a new box with a copy of
.Fa text ,
or null.
The kinds are:
.Bl -dash -compact
.It
.Fa text
null: an empty box;
.It
other texts, as by
.Fn strdup .
.El
.Pp
.Fn box_free
releases a box,
.Fn box_drop
only its text, by
.Ql fn .
A "\e" is kept, and
.Ql *fn
too.
See
.Xr soif 5 .
.Sh SEE ALSO
.Xr rdm-box 3 ,
.Xr rdm 7
)--";

const std::string for_doxygen = R"(/** @file
Boxes: each holds one text.

Only one thread may use a box.
*/

/// box is what box_create makes.
typedef struct box {
  char *text; /**< or null */
} box;

/** @name Making
All of these allocate.
*/
/** @{ */

/// box_create returns a new box with a copy of `text`, or null. The kinds are:
///   - `text` null: an empty box;
///   - other texts, as by strdup().
box *box_create(const char *text);

/// box_free releases a box, box_drop only its text, by `fn`. A "\\" is kept, and `*fn` too. See soif(5).
void box_free(box *b);

/// box_free releases a box, box_drop only its text, by `fn`. A "\\" is kept, and `*fn` too. See soif(5).
void box_drop(box *b, void (*fn)(void *, int));

/** @} */

)";

std::string script(const std::string &name) { return support::in_source("doc/reference/" + name); }

class MadePages : public ::testing::Test {
 protected:
  support::Finished make(const std::string &text) {
    const std::string input = "libbox:sample/box.h:" + directory_.write("box.h", text);
    return support::run({PYTHON, "-B", script("manual.py"), "--date", "May 1, 2026", "--to", made(), input});
  }

  std::string made(const std::string &name = "") const { return directory_.path("man3/" + name); }

  support::TemporaryDirectory directory_;
};

TEST_F(MadePages, DescribeAGroupOfAHeader) {
  ASSERT_EQ(make(header).status, 0);
  EXPECT_EQ(support::read_file(made("box_create.3")), page);
}

TEST_F(MadePages, AreFoundUnderTheNameOfEachFunction) {
  ASSERT_EQ(make(header).status, 0);
  for (const char *name : {"box_free.3", "box_drop.3"}) EXPECT_EQ(fs::read_symlink(made(name)), "box_create.3") << name;
  EXPECT_FALSE(fs::is_symlink(made("rdm-box.3")));
}

TEST_F(MadePages, LeaveNothingOfAnEarlierHeader) {
  ASSERT_EQ(make(opening + "\n/// old is old.\nint old(void);\n\nQX_END\n").status, 0);
  EXPECT_TRUE(fs::exists(made("old.3")));
  ASSERT_EQ(make(header).status, 0);
  EXPECT_FALSE(fs::exists(fs::symlink_status(made("old.3"))));
}

TEST_F(MadePages, NeedACommentForEachFunction) {
  const support::Finished finished = make(opening + "\nint bare(void);\n\nQX_END\n");
  EXPECT_EQ(finished.status, 1);
  EXPECT_THAT(finished.errors, EndsWith("box.h: bare has no comment\n"));
}

TEST_F(MadePages, AreNotMadeFromADeclarationThatIsNotUnderstood) {
  const support::Finished finished = make(opening + "\n/// odd is odd.\nint (*odd(void))[3];\n\nQX_END\n");
  EXPECT_EQ(finished.status, 1);
  EXPECT_THAT(finished.errors, EndsWith("not understood: int (*odd(void))[3]\n"));
}

TEST_F(MadePages, HaveTheSameCommentsForDoxygen) {
  const support::Finished finished =
      support::run({PYTHON, "-B", script("doxygen_filter.py"), directory_.write("box.h", header)});
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, for_doxygen);
}

}  // namespace
