#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <ostream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/files.h"

namespace {

using Names = std::set<std::string>;

/// What the build says a library is: its file and soname, its version node and script, the headers that declare its
/// interfaces, and the libraries of ours that it may need.
struct Library {
  std::string name;
  std::string soname;
  std::string node;
  std::string map;
  std::vector<std::string> headers;
  Names may_need;
};

/// Failures name the library.
void PrintTo(const Library &library, std::ostream *out) { *out << library.name; }

const std::vector<Library> &libraries() {
  static const std::vector<Library> all = {
      {"qxapi", "libqxapi.so.3", "QXAPI_3", "qxapi/qxapi.map", {"include/qxapi/qxapi.h"}, {}},
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

std::string source(const std::string &path) { return support::read_file(SOURCE_DIR "/" + path); }

/// output_of runs a command and returns what it prints.
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

/// Procedures are declared with QX_NOEXCEPT, variables with extern, several to a line perhaps.
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

std::string path_of(const Library &library) { return BINARY_DIR "/lib/lib" + library.name + ".so"; }

/// exported returns "name@@NODE" of every symbol that the library defines for others.
Names exported(const Library &library) {
  std::istringstream lines(output_of(NM " -D --defined-only --with-symbol-versions " + path_of(library)));
  Names names;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string address, type, name;
    fields >> address >> type >> name;
    if (type != "A") names.insert(name);  // the version node itself
  }
  return names;
}

Names with_version(const Names &names, const std::string &node) {
  Names versioned;
  for (const std::string &name : names) versioned.insert(std::string(name).append("@@").append(node));
  return versioned;
}

/// dynamic returns the values of a tag in the library's dynamic section.
Names dynamic(const Library &library, const std::string &tag) {
  return matches(output_of(READELF " -dW " + path_of(library)), R"(\()" + tag + R"(\)[^\n]*\[([^\]]*)\])");
}

class Abi : public ::testing::TestWithParam<Library> {};

TEST_P(Abi, LibraryExportsWhatItsHeadersDeclare) {
  EXPECT_THAT(exported(GetParam()), ::testing::ContainerEq(with_version(declared(GetParam()), GetParam().node)));
}

TEST_P(Abi, VersionScriptListsWhatTheHeadersDeclare) {
  const std::string map = source(GetParam().map);
  const std::string global = map.substr(0, map.find("local:"));
  EXPECT_THAT(matches(global, R"((\w+);)"), ::testing::ContainerEq(declared(GetParam())));
}

TEST_P(Abi, SonameCarriesTheVersion) {
  EXPECT_THAT(dynamic(GetParam(), "SONAME"), ::testing::ElementsAre(GetParam().soname));
}

TEST_P(Abi, LibraryNeedsOnlyTheLayersBelow) {
  Names ours;
  for (const Library &library : libraries()) ours.insert(library.soname);
  for (const std::string &needed : dynamic(GetParam(), "NEEDED"))
    EXPECT_TRUE(!ours.contains(needed) || GetParam().may_need.contains(needed)) << needed;
}

INSTANTIATE_TEST_SUITE_P(Libraries, Abi, ::testing::ValuesIn(libraries()),
                         [](const auto &test) { return test.param.name; });

}  // namespace
