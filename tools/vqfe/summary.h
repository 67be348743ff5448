// The human summary of an extract run: per photo the faces and pet faces found, the top
// labels, the time and whether the store answered; then the totals. Thread-safe.
#pragma once

#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "tools/vqfe/decoded_blobs.h"

namespace vqfe {

class Summary {
public:
    void add(const std::string& path, const BlobMap& blobs, bool fromStore, double milliseconds,
             const std::string& error);
    void addFailure(const std::string& path, const std::string& error);
    void print(std::ostream& out, double seconds) const;

private:
    struct Row {
        std::string path;
        int faces = -1;  // -1: not asked
        int pets = -1;
        std::string labels;
        bool fromStore = false;
        double milliseconds = 0;
        std::string error;
    };
    mutable std::mutex mutex_;
    std::vector<Row> rows_;
};

}  // namespace vqfe
