// SPDX-License-Identifier: MIT
/// What a shell must know about a command line to complete it. Needs only the standard library.
#ifndef CLI_GRAMMAR_H
#define CLI_GRAMMAR_H

#include <string>
#include <vector>

namespace rdm::cli {

/// Value is what follows an option, or an argument of a verb: one of `choices` or, if that is empty, a file.
struct Value {
  std::string name;  // for people: "FILE"
  std::vector<std::string> choices;
};

struct OptionGrammar {
  std::vector<std::string> names;  // as typed, short ones first: "-d", "--database"
  std::string purpose;             // without a full stop
  bool takes_value = false;
  Value value;  // only if it takes one
};

struct ArgumentGrammar {
  Value value;
  bool repeats = false;  // more of them may follow; only the last argument
};

/// VerbGrammar is the part of a command line that one verb begins, or the part before the verb, without a name.
struct VerbGrammar {
  std::string name;
  std::string purpose;
  std::vector<OptionGrammar> options;  // also those of the program, if they may follow the verb
  std::vector<ArgumentGrammar> arguments;
};

struct Grammar {
  std::string program;
  VerbGrammar start;
  std::vector<VerbGrammar> verbs;  // empty for a program without verbs
};

}  // namespace rdm::cli

#endif
