// SPDX-License-Identifier: MIT
#include "cli/completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::HasSubstr;
using Words = std::vector<std::string>;

const char *const programs[] = {"minidba", "rdmctl", "rdmd", "rdmgather", "soif"};
const char *const shells[] = {"bash", "zsh", "fish"};

std::string in_bin(const std::string &program) { return support::in_build("bin/" + program); }

/// output_of returns the output of a program; it fails the test if the program fails.
std::string output_of(const Words &command, const std::string &input = "") {
  const Finished finished = support::run(command, input);
  EXPECT_EQ(finished.status, 0) << command[0] << ' ' << command[1];
  EXPECT_EQ(finished.errors, "") << command[0] << ' ' << command[1];
  return finished.out;
}

std::string script_of(const std::string &program, const std::string &shell) {
  return output_of({in_bin(program), "completion", shell});
}

/// complete_in_bash returns the words that bash offers for the last of these words, one a line.
std::string complete_in_bash(const Words &line) {
  const std::string complete = script_of(line.front(), "bash") + "COMP_WORDS=(\"$@\")\nCOMP_CWORD=$(($# - 1))\n_" +
                               line.front() + "\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n";
  Words command{"/usr/bin/env", "bash", "-u", "-c", complete, "bash"};
  command.insert(command.end(), line.begin(), line.end());
  return output_of(command);
}

bool is_installed(const std::string &program) {
  return support::run({"/bin/sh", "-c", "command -v " + program}).status == 0;
}

TEST(Completion, BashCompletesVerbsOptionsAndValues) {
  const struct {
    Words line;
    std::string offered;
  } rows[] = {
      {{"minidba", "l"}, "list\n"},
      {{"minidba", "--js"}, "--json\n"},
      {{"minidba", "-d", "some.db", "ex"}, "expire\nexport\n"},
      {{"minidba", "--quiet", "s"}, "stats\nsalvage\n"},
      {{"minidba", "list", "--fo"}, "--format\n"},
      {{"minidba", "list", "--data"}, "--database\n"},
      {{"minidba", "list", "--format", "j"}, "json\n"},
      {{"minidba", "list", "--format", "=", "t"}, "tsv\n"},
      {{"minidba", "list", "--format", "="}, "soif\njson\ntsv\n"},
      {{"minidba", "list", "--format", "=", "json", "--since"}, "--since\n"},
      {{"minidba", "list", "--vers"}, "\n"},
      {{"minidba", "list", ""}, "\n"},
      {{"minidba", "help", "sal"}, "salvage\n"},
      {{"minidba", "completion", ""}, "bash\nzsh\nfish\n"},
      {{"minidba", "completion", "bash", ""}, "\n"},
      {{"rdmctl", "compl"}, "completion\n"},
      {{"rdmctl", "import", "--cs"}, "--csid\n"},
      {{"soif", "from", "o"}, "oai-dc\n"},
      {{"soif", "to", "--map", "x", "t"}, "tsv\n"},
      {{"rdmgather", "--del"}, "--deletions\n"},
      {{"rdmd", "--tls-c"}, "--tls-certificate\n"},
      {{"rdmd", "--access-log-format", ""}, "combined\njson\n"},
      {{"rdmd", ""}, "\n"},
  };
  for (const auto &row : rows) EXPECT_EQ(complete_in_bash(row.line), row.offered) << ::testing::PrintToString(row.line);
}

TEST(Completion, BashCompletesFilesElsewhere) {
  const support::TemporaryDirectory directory;
  const std::string file = directory.write("a file", "");
  const std::string begin = directory.path("a");
  for (const Words &line : {Words{"minidba", "-d", begin}, Words{"minidba", "--database", begin},
                            Words{"minidba", "update", "--rejects", "=", begin}, Words{"minidba", "update", begin},
                            Words{"minidba", "update", "one", "-", begin}, Words{"rdmctl", "import", "--config", begin},
                            Words{"rdmctl", "import", begin}, Words{"rdmd", "--config", begin},
                            Words{"rdmgather", "--state", begin}, Words{"soif", "to", "csv", begin}})
    EXPECT_EQ(complete_in_bash(line), file + "\n") << ::testing::PrintToString(line);
}

TEST(Completion, ShellsAcceptTheScriptsOfAllPrograms) {
  for (const char *shell : shells) {
    if (!is_installed(shell)) continue;
    const support::TemporaryDirectory directory;
    for (const char *program : programs)
      EXPECT_EQ(output_of({"/usr/bin/env", shell, "-n", directory.write(program, script_of(program, shell))}), "")
          << program;
  }
}

/// sample has every kind of option and argument.
cli::Grammar sample() {
  const cli::OptionGrammar help{{"-h", "--help"}, "show this help", false, {}};
  const cli::OptionGrammar form{{"--form"}, "the user's [form]: one", true, {"FORM", {"soif", "json"}}};
  const cli::OptionGrammar database{{"-d", "--database"}, "the database", true, {"FILE", {}}};
  return {"rdm-sample",
          {"", "", {help, database}, {}},
          {{"list", "print all", {help, form}, {{{"FORM", {"a", "b"}}, false}, {{"FILE", {}}, true}}}}};
}

TEST(Completion, ZshGetsTheArgumentsOfEachVerb) {
  EXPECT_EQ(cli::zsh_completion(sample()), R"(#compdef rdm-sample
# Completion of rdm-sample for zsh, as "rdm-sample completion zsh" prints it.
_rdm_sample() {
  local curcontext=$curcontext state line
  typeset -A opt_args
  local -a verbs=(
    'list:print all'
  )
  _arguments -C \
    '(-h --help)-h[show this help]' \
    '(-h --help)--help[show this help]' \
    '(-d --database)-d+[the database]:FILE:_files' \
    '(-d --database)--database=[the database]:FILE:_files' \
    '1: :->verb' \
    '*:: :->rest' && return
  case $state in
    verb) _describe verb verbs ;;
    rest)
      case $line[1] in
        list)
          _arguments \
            '(-h --help)-h[show this help]' \
            '(-h --help)--help[show this help]' \
            '--form=[the user'\''s \[form\]\: one]:FORM:(soif json)' \
            ':FORM:(a b)' \
            '*:FILE:_files' ;;
      esac ;;
  esac
}
if [[ $funcstack[1] == _rdm_sample ]]; then
  _rdm_sample "$@"
else
  compdef _rdm_sample rdm-sample
fi
)");
}

TEST(Completion, ZshCompletesAProgramWithoutVerbs) {
  cli::Grammar grammar = sample();
  grammar.verbs.clear();
  EXPECT_THAT(cli::zsh_completion(grammar), HasSubstr(R"(_rdm_sample() {
  _arguments \
    '(-h --help)-h[show this help]' \
    '(-h --help)--help[show this help]' \
    '(-d --database)-d+[the database]:FILE:_files' \
    '(-d --database)--database=[the database]:FILE:_files'
}
)"));
}

TEST(Completion, FishGetsALineForEachWord) {
  EXPECT_EQ(cli::fish_completion(sample()),
            R"(# Completion of rdm-sample for fish, as "rdm-sample completion fish" prints it.
complete -c rdm-sample -f
complete -c rdm-sample -n 'not __fish_seen_subcommand_from list' -s h -l help -d 'show this help'
complete -c rdm-sample -n 'not __fish_seen_subcommand_from list' -s d -l database -r -F -d 'the database'
complete -c rdm-sample -n 'not __fish_seen_subcommand_from list' -a list -d 'print all'
complete -c rdm-sample -n '__fish_seen_subcommand_from list' -s h -l help -d 'show this help'
complete -c rdm-sample -n '__fish_seen_subcommand_from list' -l form -x -a 'soif json' -d 'the user\'s [form]: one'
complete -c rdm-sample -n '__fish_seen_subcommand_from list' -a 'a b'
complete -c rdm-sample -n '__fish_seen_subcommand_from list' -F
)");
}

TEST(Completion, FishOffersVerbsAndValues) {
  if (!is_installed("fish")) return;
  const auto complete = [](const std::string &line) {
    return output_of(
        {"/usr/bin/env", "fish", "--no-config", "-c", script_of("minidba", "fish") + "complete -C '" + line + "'"});
  };
  EXPECT_EQ(complete("minidba -d x lis"), "list\tprint descriptions\n");
  EXPECT_EQ(complete("minidba list --format js"),
            "json\tsoif, json or tsv (number, URL and attributes between tabs)\n");
  EXPECT_EQ(complete("minidba help salv"), "salvage\n");
}

TEST(Completion, RefusesAnUnknownShell) {
  const std::string one_of = "one of bash, zsh, fish; see \"rdmd --help\"\n";
  const struct {
    Words command;
    std::string errors;
  } rows[] = {
      {{"minidba", "completion"}, "minidba: SHELL is required; see \"minidba completion --help\"\n"},
      {{"rdmctl", "completion", "tcsh"},
       "rdmctl: SHELL: tcsh not in {bash,zsh,fish}; see \"rdmctl completion --help\"\n"},
      {{"rdmd", "completion"}, "rdmd: a shell is required: " + one_of},
      {{"rdmd", "completion", "tcsh"}, "rdmd: unknown shell \"tcsh\": " + one_of},
      {{"rdmd", "completion", "bash", "zsh"}, "rdmd: a shell is required: " + one_of},
  };
  for (auto [command, errors] : rows) {
    command.front() = in_bin(command.front());
    const Finished finished = support::run(command);
    EXPECT_EQ(finished.status, 2) << errors;
    EXPECT_EQ(finished.out, "") << errors;
    EXPECT_EQ(finished.errors, errors);
  }
}

}  // namespace
