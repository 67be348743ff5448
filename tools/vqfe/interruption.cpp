#include "tools/vqfe/interruption.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace vqfe {
namespace {

std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler needs a lock-free flag");

struct sigaction oldInt = {};
struct sigaction oldTerm = {};

void onSignal(int) {
    stopRequested = true;
    // Only async-signal-safe calls here.
    const char message[] =
        "\nvqfe extract: stopping after the images in hand (Ctrl-C again to stop at once)\n";
    const ssize_t ignored = write(STDERR_FILENO, message, sizeof message - 1);
    (void)ignored;
}

}  // namespace

Interruption::Interruption() {
    stopRequested = false;
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESETHAND;  // the second signal takes the default action
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &oldInt);
    sigaction(SIGTERM, &action, &oldTerm);
    // A signal the process was started ignoring (a background job, nohup) stays ignored.
    if (oldInt.sa_handler == SIG_IGN) sigaction(SIGINT, &oldInt, nullptr);
    if (oldTerm.sa_handler == SIG_IGN) sigaction(SIGTERM, &oldTerm, nullptr);
}

Interruption::~Interruption() {
    sigaction(SIGINT, &oldInt, nullptr);
    sigaction(SIGTERM, &oldTerm, nullptr);
}

bool Interruption::requested() {
    return stopRequested;
}

}  // namespace vqfe
