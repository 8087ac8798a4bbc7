// SPDX-License-Identifier: MIT
/// Scripts that make a shell complete a command line: verbs, options, values of a fixed set, and files.
#ifndef CLI_COMPLETION_H
#define CLI_COMPLETION_H

#include <string>

#include "cli/grammar.h"

namespace rdm::cli {

/// bash_completion, zsh_completion and fish_completion return the script of a shell. bash 4, zsh 5 and fish 3 or later
/// run it, without further packages. Names, choices and purposes must be single lines; choices are words without
/// characters that a shell expands.
std::string bash_completion(const Grammar &grammar);
std::string zsh_completion(const Grammar &grammar);
std::string fish_completion(const Grammar &grammar);

/// joined returns the words with a separator between them.
std::string joined(const std::vector<std::string> &words, const std::string &separator = " ");
/// single_quoted returns the text as one word of bash and zsh.
std::string single_quoted(const std::string &text);
/// function_of returns the name of the function that completes a program: "_rdmctl".
std::string function_of(const Grammar &grammar);
/// verb_names returns the names of the verbs.
std::vector<std::string> verb_names(const Grammar &grammar);

}  // namespace rdm::cli

#endif
