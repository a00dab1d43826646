// Waiting for the signals that end the program.
#include "stop_signal.h"

#include <csignal>
#include <initializer_list>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace tools {

stop_signal::stop_signal() {
    sigset_t stopping;
    sigemptyset(&stopping);
    for (int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&stopping, number);
    pthread_sigmask(SIG_BLOCK, &stopping, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    fd_ = signalfd(-1, &stopping, SFD_NONBLOCK | SFD_CLOEXEC);
}

stop_signal::~stop_signal() {
    close(fd_);
}

bool stop_signal::wait_for(int fd, int keyboard, int timeout_ms) {
    pollfd items[] = {{fd_, POLLIN, 0}, {fd, POLLIN, 0}, {keyboard, POLLIN, 0}};
    if (!stopped_)
        poll(items, 3, timeout_ms);
    stopped_ = stopped_ || items[0].revents != 0;
    return stopped_;
}

bool stop_signal::is_set() {
    pollfd item{fd_, POLLIN, 0};
    stopped_ = stopped_ || poll(&item, 1, 0) > 0;
    return stopped_;
}

} // namespace tools
