// A monitoring server inside the program, on a free loopback port.
#ifndef MONCL_TOOLS_LOCAL_SERVER_H
#define MONCL_TOOLS_LOCAL_SERVER_H

#include "monitor_server.h"

#include <thread>

namespace tools {

/// Answers in a thread of its own until destroyed.
class local_server {
public:
    /// @throws std::exception if the server cannot listen
    explicit local_server(const monsrv::server_options& options)
        : server_(options), port_(server_.bind("127.0.0.1", 0)),
          answering_([this] { server_.run(); }) {}
    ~local_server() {
        server_.stop();
        answering_.join();
    }
    local_server(const local_server&) = delete;
    local_server& operator=(const local_server&) = delete;

    int port() const { return port_; }
    monsrv::server_counts counts() const { return server_.counts(); }

private:
    monsrv::monitor_server server_;
    int port_;
    std::thread answering_;
};

} // namespace tools

#endif
