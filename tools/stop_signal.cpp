// Waiting for SIGINT and SIGTERM.
#include "stop_signal.h"

#include <algorithm>
#include <csignal>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace tools {

stop_signal::stop_signal() {
    sigset_t stopping;
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGINT);
    sigaddset(&stopping, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopping, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    fd_ = signalfd(-1, &stopping, SFD_NONBLOCK | SFD_CLOEXEC);
}

stop_signal::~stop_signal() {
    close(fd_);
}

bool stop_signal::wait_until(std::chrono::steady_clock::time_point when) {
    while (!stopped_) {
        const auto left = std::max(when - std::chrono::steady_clock::now(),
                                   std::chrono::steady_clock::duration::zero());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const std::chrono::nanoseconds rest = left - seconds;
        const timespec timeout{seconds.count(), rest.count()};
        pollfd item{fd_, POLLIN, 0};
        const int ready = ppoll(&item, 1, &timeout, nullptr);
        stopped_ = ready > 0;
        if (ready == 0)
            break;
    }
    return stopped_;
}

} // namespace tools
