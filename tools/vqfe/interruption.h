// Ctrl-C during `vqfe extract`: the first SIGINT or SIGTERM asks the run to stop after the
// images in hand (their results are printed and stored, so nothing done is lost and a
// rerun goes on from the store); a second one ends the process at once, as usual.
#pragma once

namespace vqfe {

class Interruption {
public:
    // Clears the request and installs the one-shot handlers while the object lives.
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    // Whether a signal asked the run to stop.
    static bool requested();
};

}  // namespace vqfe
