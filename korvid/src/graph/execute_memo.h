// kv::ExecuteMemo: results that several nodes of one execute would compute alike (the same
// analysis of the same image with the same networks and parameters) are computed by the
// first node that asks and shared with the others. A merged graph of several templates
// holds a face node per template; they all run one detection. Emptied at the start of
// every execute, so nothing outlives the image it was computed from.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <typeinfo>

#include <opencv2/core.hpp>

namespace kv {

class ExecuteMemo {
public:
    // The value stored under key, computed by compute() when there is none. The key must
    // name everything the value depends on; a compute() that throws stores nothing.
    template <typename T, typename Compute>
    const T& get(const std::string& key, Compute&& compute) {
        std::string full = std::string(typeid(T).name()) + '\n' + key;
        auto it = values_.find(full);
        if (it == values_.end()) it = values_.emplace(std::move(full), std::make_shared<const T>(compute())).first;
        return *static_cast<const T*>(it->second.get());
    }
    void clear() { values_.clear(); }

private:
    std::map<std::string, std::shared_ptr<const void>> values_;
};

// Identifies an image within one execute: every node of an execute sees the same input
// image, alive until the execute ends.
inline std::string imageIdentity(const cv::Mat& image) {
    return std::to_string(reinterpret_cast<uintptr_t>(image.data)) + ':' + std::to_string(image.cols) + 'x' +
           std::to_string(image.rows) + ':' + std::to_string(image.step[0]) + ':' + std::to_string(image.type());
}

// The address of an object as part of a memo key (a shared network, say).
inline std::string identity(const void* object) { return std::to_string(reinterpret_cast<uintptr_t>(object)); }

}  // namespace kv
