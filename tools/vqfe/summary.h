// The human summary of an extract run: per photo the faces found (with age, gender and
// expression when measured), the pet faces, the skeletons, the people cue, the top classes
// and labels, the time and whether the store answered; then the totals. Thread-safe.
#pragma once

#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "library/decoded_blobs.h"

namespace vqfe {

class Summary {
public:
    // A summary that is not wanted keeps nothing: a row decodes every blob of its photo again.
    explicit Summary(bool wanted = true) : wanted_(wanted) {}
    void add(const std::string& path, const BlobMap& blobs, bool fromStore, double milliseconds,
             const std::string& error);
    void addFailure(const std::string& path, const std::string& error);
    void print(std::ostream& out, double seconds) const;

private:
    struct Row {
        std::string path;
        int faces = -1;  // -1: not asked
        int pets = -1;
        int skeletons = -1;
        std::string faceCaptions;  // "; "-separated, one per face with a measurement
        std::optional<float> people;
        std::string classes;  // the classification's, when the labels are the scenes'
        std::string labels;
        bool read = true;  // false: the file could not be read as an image
        bool fromStore = false;
        double milliseconds = 0;
        std::string error;
    };
    const bool wanted_;
    mutable std::mutex mutex_;
    std::vector<Row> rows_;
};

}  // namespace vqfe
