// SPDX-License-Identifier: MIT
#include <cstdio>
#include <memory>
#include <ostream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"

using namespace rdm;

namespace {

using Names = std::set<std::string>;

/// A library: its name and soname, its version node and script, the headers that declare its interfaces, and those of
/// our libraries that it may need.
struct Library {
  std::string name;
  std::string soname;
  std::string node;
  std::string map;
  std::vector<std::string> headers;
  Names may_need;
};

/// PrintTo shows a library by its name in test failures.
void PrintTo(const Library &library, std::ostream *out) { *out << library.name; }

const std::vector<Library> &libraries() {
  static const std::vector<Library> all = {
      {"qxapi", "libqxapi.so.3", "QXAPI_3", "qxapi/qxapi.map", {"include/qxapi/qxapi.h", "include/qxapi/slice.h"}, {}},
      {"cs",
       "libcs.so.1",
       "LIBCS_1",
       "libcs/libcs.map",
       {"include/libcs/adt.h", "include/libcs/cs.h", "include/libcs/log.h", "include/libcs/soif.h",
        "include/libcs/tax.h"},
       {"libqxapi.so.3"}},
      {"dba", "libdba.so.1", "LIBDBA_1", "dba/libdba.map", {"dba/dba.h"}, {"libqxapi.so.3"}},
      {"rdm",
       "librdm.so.1",
       "LIBRDM_1",
       "service/librdm.map",
       {"service/alias.h", "service/csid.h", "service/rdm.h", "service/schema.h"},
       {"libcs.so.1", "libdba.so.1", "libqxapi.so.3"}},
  };
  return all;
}

std::string source(const std::string &path) { return support::read_file(support::in_source(path)); }

/// output_of runs a command and returns its output.
std::string output_of(const std::string &command) {
  // NOLINTNEXTLINE(cert-env33-c): the commands are the build's own tools
  const std::unique_ptr<FILE, int (*)(FILE *)> pipe(::popen(command.c_str(), "r"), ::pclose);
  std::string output;
  char block[4096];
  for (size_t n = 0; pipe && (n = std::fread(block, 1, sizeof block, pipe.get())) > 0;) output.append(block, n);
  EXPECT_NE(output, "") << command;
  return output;
}

/// matches returns the first group of every match.
Names matches(const std::string &text, const std::string &pattern) {
  const std::regex regex(pattern);
  Names names;
  for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
    names.insert((*match)[1]);
  return names;
}

std::string without_comments(const std::string &text) {
  return std::regex_replace(text, std::regex(R"(//[^\n]*|/\*[^*]*\*+([^/*][^*]*\*+)*/)"), " ");
}

/// declared_in returns the procedures declared with QX_NOEXCEPT and the variables declared with extern.
Names declared_in(const std::string &header) {
  const std::string text = without_comments(source(header));
  Names names = matches(text, R"((\w+)\s*\([^(){};]*(?:\([^(){};]*\)[^(){};]*)*\)\s*QX_NOEXCEPT)");
  for (const std::string &list : matches(text, R"(\bextern\s+([^;"()]+);)"))
    for (const std::string &name : matches(list + ",", R"((\w+)\s*(?:\[\w+\])?\s*,)")) names.insert(name);
  return names;
}

Names declared(const Library &library) {
  Names names;
  for (const std::string &header : library.headers) names.merge(declared_in(header));
  return names;
}

std::string path_of(const Library &library) { return support::in_build("lib/lib" + library.name + ".so"); }

/// symbols returns the names in a file's table of dynamic symbols, versions included, less the version nodes.
Names symbols(const std::string &path, const std::string &options = "") {
  std::istringstream lines(output_of(NM " -D --with-symbol-versions " + options + " " + path));
  Names names;
  for (std::string line; std::getline(lines, line);) {
    const size_t name = line.rfind(' ') + 1;  // after the address, where there is one, and the type
    if (line[name - 2] != 'A') names.insert(line.substr(name));
  }
  return names;
}

/// exported returns "name@@NODE" of every symbol that the library defines for others.
Names exported(const Library &library) { return symbols(path_of(library), "--defined-only"); }

/// used returns the symbols of a version node that the C programs use. A program defines a copy of a variable.
Names used(const std::string &node) {
  std::istringstream programs(CALLS);
  Names names;
  for (std::string program; std::getline(programs, program, ':');)
    for (const std::string &symbol : symbols(support::in_build(program)))
      if (const size_t at = symbol.find('@'); at != std::string::npos && symbol.ends_with("@" + node))
        names.insert(symbol.substr(0, at));
  return names;
}

Names with_version(const Names &names, const std::string &node) {
  Names versioned;
  for (const std::string &name : names) versioned.insert(std::string(name).append("@@").append(node));
  return versioned;
}

/// dynamic returns the values of a tag in the dynamic section of a file.
Names dynamic(const std::string &path, const std::string &tag) {
  return matches(output_of(READELF " -dW " + path), R"(\()" + tag + R"(\)[^\n]*\[([^\]]*)\])");
}

class Abi : public ::testing::TestWithParam<Library> {};

TEST_P(Abi, LibraryExportsTheDeclarationsOfItsHeaders) {
  EXPECT_THAT(exported(GetParam()), ::testing::ContainerEq(with_version(declared(GetParam()), GetParam().node)));
}

TEST_P(Abi, VersionScriptListsTheDeclarationsOfTheHeaders) {
  const std::string map = source(GetParam().map);
  const std::string global = map.substr(0, map.find("local:"));
  EXPECT_THAT(matches(global, R"((\w+);)"), ::testing::ContainerEq(declared(GetParam())));
}

TEST_P(Abi, SonameCarriesTheVersion) {
  EXPECT_THAT(dynamic(path_of(GetParam()), "SONAME"), ::testing::ElementsAre(GetParam().soname));
}

TEST_P(Abi, LibraryNeedsOnlyTheLayersBelow) {
  Names ours;
  for (const Library &library : libraries()) ours.insert(library.soname);
  for (const std::string &needed : dynamic(path_of(GetParam()), "NEEDED"))
    EXPECT_TRUE(!ours.contains(needed) || GetParam().may_need.contains(needed)) << needed;
}

TEST_P(Abi, ProgramsInCUseAllThatTheLibraryExports) {
  EXPECT_THAT(with_version(used(GetParam().node), GetParam().node), ::testing::ContainerEq(exported(GetParam())));
}

INSTANTIATE_TEST_SUITE_P(Libraries, Abi, ::testing::ValuesIn(libraries()),
                         [](const auto &test) { return test.param.name; });

TEST(SupportLibrary, IsAllThatAProgramLinksForIt) {
  Names needed = dynamic(support::in_build("tests/abi_calls/csio"), "NEEDED");
  std::erase_if(needed, [](const std::string &name) { return name.find("san.so") != std::string::npos; });
  EXPECT_THAT(needed, ::testing::ElementsAre("libc.so.6", "libcs.so.1", "libqxapi.so.3"));
}

}  // namespace
