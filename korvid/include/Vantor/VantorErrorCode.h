// Vantor::VantorErrorCode: status of every framework operation. 0 is success.
#pragma once

#include <cstdint>

namespace Vantor {

enum VantorErrorCode : int32_t {
    NO_ERROR = 0,
    INVALID_RES_FINDER = 1,  // no usable resource finder installed
    NOT_INIT = 2,            // operation needs a successful initialise
    INVALID_CONFIG = 3,      // configuration missing, unreadable or malformed
    INVALID_GRAPH = 4,       // graph text malformed or inconsistent
    INVALID_MODEL = 5,       // a model could not be found or loaded
    INVALID_TYPE = 6,        // the current graph does not produce this algorithm type
    INVALID_NODE = 7,        // a node failed while running
    INVALID_FORMAT = 8,      // input image unusable (format, size, data length)
    INTERNAL_ERROR = 9,
};

}  // namespace Vantor
