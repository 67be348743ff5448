#include "tools/vqfe/fd_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace vqfe {

int FdOutput::FdBuffer::overflow(int c) {
    if (c == traits_type::eof()) return traits_type::not_eof(c);
    const char byte = static_cast<char>(c);
    return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
}

std::streamsize FdOutput::FdBuffer::xsputn(const char* data, std::streamsize n) {
    std::streamsize written = 0;
    while (written < n) {
        const ssize_t step = ::write(fd_, data + written, static_cast<size_t>(n - written));
        if (step < 0 && errno == EINTR) continue;
        if (step <= 0) break;
        written += step;
    }
    return written;
}

FdOutput::FdOutput(bool libraryLinesToStderr)
    : savedStdout_((std::fflush(stdout), ::dup(STDOUT_FILENO))),
      buffer_(savedStdout_ >= 0 ? savedStdout_ : STDOUT_FILENO),
      stream_(&buffer_) {
    if (savedStdout_ < 0) return;  // cannot separate: everything stays on stdout
    const int target = libraryLinesToStderr ? ::dup(STDERR_FILENO) : ::open("/dev/null", O_WRONLY);
    if (target >= 0) {
        ::dup2(target, STDOUT_FILENO);
        ::close(target);
    }
}

FdOutput::~FdOutput() {
    if (savedStdout_ < 0) return;
    std::fflush(stdout);
    ::dup2(savedStdout_, STDOUT_FILENO);
    ::close(savedStdout_);
}

}  // namespace vqfe
