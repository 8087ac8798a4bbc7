// SPDX-License-Identifier: MIT
/// Reads the grammar of a command line from its declarations.
#ifndef CLI_GRAMMAR_OF_H
#define CLI_GRAMMAR_OF_H

#include <CLI/CLI.hpp>

#include "cli/grammar.h"

namespace rdm::cli {

/// grammar_of returns the grammar of a program. The choices of a value are those of CLI::IsMember. An argument with the
/// name VERB stands for a verb. The names and purposes are those of the help; a purpose ends at its first semicolon.
Grammar grammar_of(const CLI::App &app);

}  // namespace rdm::cli

#endif
