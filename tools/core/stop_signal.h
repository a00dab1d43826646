// SIGINT and SIGTERM as something to wait for.
#ifndef MONCL_TOOLS_STOP_SIGNAL_H
#define MONCL_TOOLS_STOP_SIGNAL_H

namespace tools {

/// Blocks SIGINT, SIGTERM, SIGHUP and SIGQUIT in every thread started later, and SIGPIPE in the
/// process, so that they interrupt nothing half done. Construct one, before any thread.
class stop_signal {
public:
    stop_signal();
    ~stop_signal();
    stop_signal(const stop_signal&) = delete;
    stop_signal& operator=(const stop_signal&) = delete;

    /// Waits until one of the descriptors can be read, a signal is handled, or the time is over.
    /// @param keyboard   -1 for none
    /// @param timeout_ms -1 for no end
    /// @return whether a signal asked to stop, now or earlier
    bool wait_for(int fd, int keyboard = -1, int timeout_ms = -1);
    /// Whether a signal has asked to stop; does not wait.
    bool is_set();

private:
    int fd_;
    bool stopped_ = false;
};

} // namespace tools

#endif
