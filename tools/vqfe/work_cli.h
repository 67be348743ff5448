// The command lines of `vqfe enqueue`, `vqfe work` and `vqfe status`.
#pragma once

#include <string>
#include <vector>

namespace vqfe {

// True for the commands this file parses.
bool isWorkCommand(const std::string& command);
// Parses args and runs command; baseDir is the installation's root (models/, share/).
int workCommand(const std::string& command, const std::vector<std::string>& args, const std::string& baseDir);

}  // namespace vqfe
