// What every vqfe command prints for a usage error, so the error is not scrolled away
// by the whole help text.
#pragma once

#include <iostream>
#include <string>

namespace vqfe {

// The command's usage text up to its first blank line: the "usage: ..." lines.
std::string synopsis(const std::string& usage);

// Writes "vqfe <command>: <message>", the synopsis of usage and where the whole help is
// ("Run 'vqfe <command> --help' ..."); the command is read from usage's first line.
// Returns 2, the exit status of a usage error.
int usageError(const std::string& message, const std::string& usage, std::ostream& err = std::cerr);

}  // namespace vqfe
