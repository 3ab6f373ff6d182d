#include "inventory/reading/signals.h"

#include <sys/signalfd.h>

namespace inventory {

EndingSignals::EndingSignals() {
    sigemptyset(&ending_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        // One that is ignored, as nohup does, would still arrive here.
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) sigaddset(&ending_, signal);
    }
    sigprocmask(SIG_BLOCK, &ending_, &before_);
    descriptor_ = Descriptor(signalfd(-1, &ending_, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor_) restore();
}

std::optional<int> EndingSignals::pending() const {
    signalfd_siginfo info{};
    if (!descriptor_ || read(descriptor_.get(), &info, sizeof info) != sizeof info) return std::nullopt;
    return static_cast<int>(info.ssi_signo);
}

void EndingSignals::restore() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }

void EndingSignals::end_by(int signal) const {
    std::signal(signal, SIG_DFL);
    restore();
    raise(signal);
    _exit(128 + signal);
}

} // namespace inventory
