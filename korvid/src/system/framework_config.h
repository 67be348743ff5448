// kv::FrameworkConfig: the framework configuration, a JSON object ("{}" is valid).
//
// Recognised key: "faults", an object keyed by decimal algorithm type whose values are
//   {"execute": CODE}   execute of that type returns CODE without running
//   {"result": null}    execute of that type succeeds, every result fetch gives null
//   {"throw": "TEXT"}   execute of that type throws std::runtime_error("TEXT")
// Recognised key: "threads", a positive integer: how many threads OpenCV's parallel loops
//   use (cv::setNumThreads), applied when a system is initialised. OpenCV has one setting
//   per process, so the latest system initialised with the key sets it for all.
// Other keys are ignored so that configurations written for the device framework load.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace kv {

struct Fault {
    enum class Kind { ExecuteCode, NullResult, Throw };
    Kind kind = Kind::ExecuteCode;
    int32_t code = 0;
    std::string text;
};

struct FrameworkConfig {
    std::map<int32_t, Fault> faults;  // by algorithm type
    int threads = 0;                  // 0: OpenCV's setting is left as it is
};

// Throws kv::Error (INVALID_CONFIG, saying what is wrong) when the text is not a valid
// configuration.
FrameworkConfig parseFrameworkConfig(const char* data, size_t length);

}  // namespace kv
