// The signals that end a command that otherwise goes on for ever.
#pragma once

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

namespace tool {

class Ending {
  public:
    Ending() {
        sigset_t ending{};
        sigemptyset(&ending);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ending, signal);
        sigprocmask(SIG_BLOCK, &ending, nullptr);
        descriptor_ = signalfd(-1, &ending, SFD_CLOEXEC);
    }
    Ending(const Ending &) = delete;
    Ending &operator=(const Ending &) = delete;
    ~Ending() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    [[nodiscard]] int descriptor() const { return descriptor_; } // readable once it is time to end

  private:
    int descriptor_ = -1;
};

} // namespace tool
