// `vqfe report`: a static HTML report of a store, for a browser without a server.
#pragma once

#include <string>

#include "library/photo_library.h"

namespace vqfe {

// Writes the report into dir (created when missing) and returns the path of its
// index.html. A dir that exists and is neither empty nor an earlier report is refused
// (std::runtime_error) before anything is written; nothing outside dir is ever written
// or deleted. pictures, when not empty, is the --draw directory of an extract run.
std::string writeReport(PhotoLibrary& library, const std::string& dir, const std::string& pictures);

}  // namespace vqfe
