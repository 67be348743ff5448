// The command lines of `vqfe people`, `duplicates`, `search`, `reindex` and `report`:
// questions across the photos of a store, answered by the library's PhotoLibrary.
#pragma once

#include <string>
#include <vector>

namespace vqfe {

// True for the commands this file parses.
bool isLibraryCommand(const std::string& command);
// Parses args (options may stand anywhere) and runs command; returns the exit status.
int libraryCommand(const std::string& command, const std::vector<std::string>& args);

}  // namespace vqfe
