// What a service such as monsrv says to the service manager that started it.
#ifndef MONSRV_PROGRAM_SERVICE_MANAGER_H
#define MONSRV_PROGRAM_SERVICE_MANAGER_H

#include <chrono>
#include <string>

namespace monsrv {

/// Sends datagrams to the socket that systemd names in NOTIFY_SOCKET. Without that, and if nobody
/// takes them, nothing happens.
class service_manager {
public:
    /// Reads the environment.
    service_manager();

    /// The service answers from now on; @p status is shown by `systemctl status`.
    void ready(const std::string& status) const;
    /// The service has begun to end.
    void stopping() const;
    /// The service works. If this does not come in time, the service is restarted.
    void alive() const;
    /// How often `alive` is to be called: twice in the time that the manager waits; 0 if it does
    /// not wait for it.
    std::chrono::milliseconds alive_period() const { return alive_period_; }

private:
    void send(const std::string& text) const;

    std::string socket_; // a path, or a name after a NUL byte; empty if there is none
    std::chrono::milliseconds alive_period_{0};
};

} // namespace monsrv

#endif
