// SPDX-License-Identifier: MIT
/// The installed files for programmers and packagers. They are tested where they were staged (DESTDIR), not under the
/// prefix, as if the tree had been moved.

#include <cctype>
#include <filesystem>
#include <iterator>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/environment.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;

namespace {

namespace fs = std::filesystem;

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

using Names = std::set<std::string>;
using Words = std::vector<std::string>;

constexpr const char *sonames[] = {"libqxapi.so.3", "libcs.so.1", "libdba.so.1", "librdm.so.1"};

const std::string description = "@DOCUMENT { http://example.org/\ntitle{10}:\tAn example\n}\n";
const std::string message = "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{15}:\tstatus-response\n}\n\n\n";

std::string consumer(const std::string &name) { return support::in_source("tests/install/consumer/" + name); }

/// output_of returns the output of a program; it fails the test if the program fails.
std::string output_of(const Words &command) {
  const support::Finished finished = support::run(command);
  EXPECT_EQ(finished.status, 0) << command[0] << ": " << finished.out << finished.errors;
  return finished.out;
}

Words words_of(const std::string &text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

std::string define(const std::string &variable, const std::string &value) {
  return std::string("-DCMAKE_").append(variable).append("=").append(value);
}

/// Programs can link a sanitizer build only if they are built with the same sanitizers.
std::string sanitizer_flags() { return *SANITIZE == '\0' ? "" : "-fsanitize=" SANITIZE; }

Names files_below(const fs::path &directory) {
  Names names;
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(directory))
    if (!entry.is_directory()) names.insert(entry.path().lexically_relative(directory).string());
  return names;
}

Names files_in_list(const std::string &directory, const Words &names) {
  Names files;
  for (const std::string &name : names) files.insert(fs::path(directory) / name);
  return files;
}

bool is_elf(const std::string &bytes) { return bytes.starts_with("\177ELF"); }

/// run_path returns the run path (RUNPATH) of a program or library.
std::string run_path(const std::string &file) {
  if (!is_elf(support::read_file(file))) return "";
  const std::string dynamic = output_of({READELF, "-d", file});
  std::smatch path;
  return std::regex_search(dynamic, path, std::regex(R"(R(UN)?PATH\)[^\n]*\[([^\]]*)\])")) ? path.str(2) : "";
}

/// names returns true if the bytes contain the directory, or a path below it, as an absolute path.
bool names(const std::string &bytes, const std::string &directory) {
  for (size_t at = bytes.find(directory); at != std::string::npos; at = bytes.find(directory, at + 1))
    if (at == 0 || (std::isalnum(static_cast<unsigned char>(bytes[at - 1])) == 0 && bytes[at - 1] != '}')) return true;
  return false;
}

/// build_directories returns the directories of the build and of the sources.
Words build_directories() {
  Words directories = {support::in_build()};
  for (const fs::directory_entry &entry : fs::directory_iterator(support::in_source()))
    if (entry.is_directory()) directories.push_back(entry.path().string() + "/");
  return directories;
}

class Install : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    const support::Environment staging("DESTDIR", stage.emplace().path().c_str());
    output_of({CMAKE, "--install", support::in_build(), "--prefix", "/opt/rdm"});
  }

  static void TearDownTestSuite() { stage.reset(); }

  static std::string installed(const std::string &name = "") { return stage->path("opt/rdm/" + name); }
  static std::string library(const std::string &name) { return installed(LIBRARY_DIR "/" + name); }
  static std::string built(const std::string &name) { return stage->path(name); }

  /// flags returns the output of pkg-config for a package.
  static Words flags(const std::string &package) {
    const support::Environment path("PKG_CONFIG_PATH", library("pkgconfig").c_str());
    return words_of(output_of({PKG_CONFIG, "--cflags", "--libs", package}) + sanitizer_flags());
  }

  /// compile builds a program from one file and returns its path.
  static std::string compile(Words command, const std::string &source, const std::string &package) {
    std::string program = built(fs::path(source).stem());
    const Words libraries = flags(package);
    command.insert(command.end(), {"-Wall", "-Wextra", "-Werror", consumer(source), "-o", program});
    command.insert(command.end(), libraries.begin(), libraries.end());
    output_of(command);
    return program;
  }

 private:
  static inline std::optional<support::TemporaryDirectory> stage;
};

TEST_F(Install, ProgramsAreBuiltByCMake) {
  output_of({CMAKE, "-S", consumer(""), "-B", built("cmake"), "-G", GENERATOR, define("PREFIX_PATH", installed()),
             define("C_COMPILER", C_COMPILER), define("CXX_COMPILER", CXX_COMPILER),
             define("C_FLAGS", sanitizer_flags()), define("CXX_FLAGS", sanitizer_flags())});
  output_of({CMAKE, "--build", built("cmake")});
  EXPECT_EQ(output_of({built("cmake/description")}), description);
  EXPECT_EQ(output_of({built("cmake/message")}), message);
}

TEST_F(Install, ExampleHostIsBuiltByCMake) {
  output_of({CMAKE, "-S", installed(DOCUMENT_DIR "/examples/embed"), "-B", built("host"), "-G", GENERATOR,
             define("PREFIX_PATH", installed()), define("C_COMPILER", C_COMPILER),
             define("C_FLAGS", sanitizer_flags())});
  output_of({CMAKE, "--build", built("host")});
  const support::Finished done = support::run({built("host/host"), "/nonexistent", "0"});
  EXPECT_EQ(done.status, 1) << done.errors;
  EXPECT_THAT(done.errors, HasSubstr("host: /nonexistent: "));
}

TEST_F(Install, ExampleHostIsBuiltByPkgConfig) {
  const std::string source = installed(DOCUMENT_DIR "/examples/embed/host.c"), host = built("pkg-config-host");
  Words command = {C_COMPILER, "-std=c11", "-Wall", "-Wextra", "-Werror", source, "-o", host};
  const Words libraries = flags("librdm");
  command.insert(command.end(), libraries.begin(), libraries.end());
  output_of(command);
  const support::Environment path("LD_LIBRARY_PATH", library("").c_str());
  EXPECT_EQ(support::run({host}).status, 2);
}

TEST_F(Install, ProgramsAreBuiltByPkgConfig) {
  const std::string in_c = compile({C_COMPILER, "-std=c11"}, "description.c", "libcs");
  const std::string in_cxx = compile({CXX_COMPILER, "-std=c++20"}, "message.cc", "librdm");
  const support::Environment path("LD_LIBRARY_PATH", library("").c_str());
  EXPECT_EQ(output_of({in_c}), description);
  EXPECT_EQ(output_of({in_cxx}), message);
}

TEST_F(Install, ReadmeShowsAProgramThatIsBuiltHere) {
  const std::string readme = support::read_file(support::in_source("README.md"));
  EXPECT_THAT(readme, HasSubstr("```c\n" + support::read_file(consumer("description.c")) + "```\n"));
  EXPECT_THAT(readme, HasSubstr(description));
}

TEST_F(Install, ProgramsFindTheirLibraries) {
  for (const char *directory : {"bin", "sbin"})
    for (const std::string &program : files_below(installed(directory)))
      EXPECT_THAT(output_of({installed(directory) + "/" + program, "--version"}), MatchesRegex(program + " [0-9.]+\n"));
}

TEST_F(Install, NothingIsLookedUpOutsideTheInstallation) {
  for (const std::string &name : files_below(installed()))
    EXPECT_THAT(run_path(installed(name)), MatchesRegex("[$]ORIGIN[^:]*|")) << name;
}

TEST_F(Install, HeadersHaveADirectoryOfTheirOwn) {
  EXPECT_EQ(files_below(installed("include")),
            files_in_list(fs::path(HEADER_DIR).lexically_relative("include"),
                          {"dba/db185.h", "dba/dba.h", "libcs/adt.h", "libcs/cs.h", "libcs/log.h", "libcs/soif.h",
                           "libcs/tax.h", "qxapi/qxapi.h", "qxapi/slice.h", "service/alias.h", "service/csid.h",
                           "service/rdm.h", "service/schema.h"}));
}

TEST_F(Install, LibrariesKeepTheirSonames) {
  for (const std::string soname : sonames) {
    const std::string file = fs::read_symlink(library(soname));
    EXPECT_THAT(file, MatchesRegex(soname + "[.][0-9]+[.][0-9]+"));
    EXPECT_EQ(fs::read_symlink(library(soname.substr(0, soname.rfind('.')))), soname);
    EXPECT_THAT(output_of({READELF, "-d", library(file)}), HasSubstr("soname: [" + soname + "]"));
  }
}

TEST_F(Install, PackagesHaveTheVersionsOfTheirLibraries) {
  for (const std::string soname : sonames) {
    const std::string package = soname.substr(0, soname.find('.'));
    const support::Environment path("PKG_CONFIG_PATH", library("pkgconfig").c_str());
    const std::string version = words_of(output_of({PKG_CONFIG, "--modversion", package})).at(0);
    EXPECT_EQ(fs::read_symlink(library(soname)), package + ".so." + version);
  }
}

#if __SIZEOF_POINTER__ == 8
TEST_F(Install, ProgramsThatWereBuiltBeforeStillRun) {
  Words check = {support::in_source("scripts/abi"), "--check"};
  for (const char *soname : sonames) check.push_back(library(soname));
  output_of(check);
}
#endif

TEST_F(Install, NoFileNamesADirectoryOfTheBuild) {
  for (const std::string &name : files_below(installed())) {
    const std::string bytes = support::read_file(installed(name));
    // Debug information contains the paths of the sources.
    if (!OPTIMISED && is_elf(bytes)) continue;
    for (const std::string &directory : build_directories())
      EXPECT_FALSE(names(bytes, directory)) << name << " names " << directory;
  }
}

TEST_F(Install, EveryManualPageIsInItsSection) {
  for (const std::string &page : files_below(support::in_source("doc/man")))
    EXPECT_TRUE(support::file_exists(installed(MANUAL_DIR "/man") + page.back() + "/" + page)) << page;
}

TEST_F(Install, FunctionsHaveManualPages) {
  for (const char *page : {"rdm-soif.3", "csqueue.3", "csqueue_peek.3", "rdm_init.3", "dba_open.3", "host_alloc.3"})
    EXPECT_THAT(support::read_file(installed(MANUAL_DIR "/man3/") + page), HasSubstr("\n.Sh DESCRIPTION\n")) << page;
}

TEST_F(Install, ProgramsComeWithTheirCompletion) {
  const std::string share = installed("share/");
  for (const char *directory : {"bin", "sbin"})
    for (const std::string &program : files_below(installed(directory)))
      for (const auto &[shell, file] :
           {std::pair<const char *, std::string>{"bash", "bash-completion/completions/" + program},
            {"zsh", "zsh/site-functions/_" + program},
            {"fish", "fish/vendor_completions.d/" + program + ".fish"}})
        EXPECT_EQ(support::read_file(share + file),
                  output_of({installed(directory) + "/" + program, "completion", shell}));
}

TEST_F(Install, DocumentsComeWithTheProgram) {
  for (const char *name : {"README.md", "CHANGELOG.md", "LICENSE", "doc/operations.md", "doc/formats/soif.md"})
    EXPECT_TRUE(support::file_exists(installed(DOCUMENT_DIR "/") + name)) << name;
}

TEST_F(Install, DocumentsLinkToInstalledFiles) {
  Words command = {PYTHON, "-B", support::in_source("doc/reference/links.py")};
  for (const std::string &name : files_below(installed(DOCUMENT_DIR)))
    if (name.ends_with(".md")) command.push_back(installed(DOCUMENT_DIR "/") + name);
  EXPECT_GT(command.size(), 50u);
  EXPECT_EQ(output_of(command), "");
}

TEST_F(Install, ExampleConfigurationNamesThePlacesOfTheInstallation) {
  const std::string examples = installed(DOCUMENT_DIR "/examples/");
  for (const char *name : {"rdm.conf", "csid.conf"})
    EXPECT_THAT(support::read_file(examples + name), Not(HasSubstr("@"))) << name;
  EXPECT_THAT(support::read_file(examples + "rdm.conf"), HasSubstr("csid-config=\"/var/lib/rdm/csid.conf\"\n"));
  EXPECT_THAT(support::read_file(examples + "csid.conf"), HasSubstr(DOCUMENT_DIR "/examples/rfc/server.rdm\"\n"));
}

}  // namespace
