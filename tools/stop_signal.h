// SIGINT and SIGTERM as something to wait for.
#ifndef MONCL_TOOLS_STOP_SIGNAL_H
#define MONCL_TOOLS_STOP_SIGNAL_H

#include <chrono>

namespace tools {

/// Takes SIGINT and SIGTERM away from every thread started later, and SIGPIPE from the process, so
/// that they interrupt nothing half done. Construct one, before any thread.
class stop_signal {
public:
    stop_signal();
    ~stop_signal();
    stop_signal(const stop_signal&) = delete;
    stop_signal& operator=(const stop_signal&) = delete;

    /// Waits until @p when.
    /// @return whether a signal asked to stop, now or earlier
    bool wait_until(std::chrono::steady_clock::time_point when);

private:
    int fd_;
    bool stopped_ = false;
};

} // namespace tools

#endif
