// The signals that end the program, watched while it has processes of its own at work: those are in process groups
// of their own, so that nobody but the program can tell them.
#pragma once

#include "inventory/reading/descriptor.h"

#include <csignal>
#include <optional>

namespace inventory {

// From construction to destruction the signals wait to be asked for. Where no descriptor is left for that, they act
// as ever: the workers go with their parent all the same.
class EndingSignals {
  public:
    EndingSignals();
    EndingSignals(const EndingSignals &) = delete;
    EndingSignals &operator=(const EndingSignals &) = delete;
    ~EndingSignals() { restore(); }

    [[nodiscard]] int descriptor() const { return descriptor_.get(); } // -1: none
    [[nodiscard]] std::optional<int> pending() const;
    void restore() const;
    // Ends the process as the signal would have.
    [[noreturn]] void end_by(int signal) const;

  private:
    sigset_t ending_{};
    sigset_t before_{};
    Descriptor descriptor_;
};

} // namespace inventory
