// Keeps the tool's standard output for its own JSON. The library writes a diagnostic line
// per face result to standard output, as it does inside an app; while a FdOutput lives,
// file descriptor 1 points elsewhere (/dev/null, or standard error when verbose) and
// stream() writes to the original standard output.
#pragma once

#include <memory>
#include <ostream>
#include <streambuf>

namespace vqfe {

class FdOutput {
public:
    explicit FdOutput(bool libraryLinesToStderr);
    ~FdOutput();
    FdOutput(const FdOutput&) = delete;
    FdOutput& operator=(const FdOutput&) = delete;

    std::ostream& stream() { return stream_; }

private:
    class FdBuffer : public std::streambuf {
    public:
        explicit FdBuffer(int fd) : fd_(fd) {}
    protected:
        int overflow(int c) override;
        std::streamsize xsputn(const char* data, std::streamsize n) override;
    private:
        int fd_;
    };

    int savedStdout_;
    FdBuffer buffer_;
    std::ostream stream_;
};

}  // namespace vqfe
