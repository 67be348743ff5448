// kv::Error: how korvid's own functions fail, at every layer: the framework code the system
// reports (INVALID_MODEL for unusable model content, INVALID_GRAPH for a graph that does not
// hold together, INVALID_NODE for unusable parameters or data, ...) and a text saying what
// went wrong, in one value. Thrown: it passes through the nodes' own code up to the system,
// which turns it into its return code and last error message.
#pragma once

#include <stdexcept>
#include <string>

#include "Vantor/VantorErrorCode.h"

namespace kv {

class Error : public std::runtime_error {
public:
    Error(Vantor::VantorErrorCode code, const std::string& what) : std::runtime_error(what), code(code) {}
    Vantor::VantorErrorCode code;
};

}  // namespace kv
