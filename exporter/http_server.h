// The HTTP server: connections, their limits and time-outs, TLS. A handler makes the answers.
//
//     http_server server(options, [](const request& asked) { return response{...}; });
//     while (!stop.wait_for(-1, -1, 1000))
//         server.close_overdue();
#ifndef MONCL_EXPORTER_HTTP_SERVER_H
#define MONCL_EXPORTER_HTTP_SERVER_H

#include "http_message.h"
#include "listen_address.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace exporter {

/// Where to listen, and what each connection may use up.
struct http_options {
    listen_address at;
    std::string certificate; ///< PEM; empty: no TLS
    std::string key;         ///< PEM
    unsigned connections = 128;
    unsigned connections_per_address = 64;
    std::size_t request_bytes = 32 * 1024;  ///< of a request's line and headers
    std::chrono::seconds first_request{10}; ///< from accepting a connection to a whole request
    std::chrono::seconds next_request{120}; ///< from an answer to the next whole request
    std::chrono::seconds answer{60};        ///< for reading an answer that has a length
    std::chrono::seconds stall{10};         ///< most that a reader may stand still
};

/// Serves until it is destroyed, each connection in a thread of its own. Answers GET and HEAD;
/// anything else, and a request with a body, is refused.
class http_server {
public:
    /// Called by the connections' threads.
    using handler = std::function<response(const request& asked)>;

    /// @throws std::runtime_error if it cannot listen there, or the certificate is of no use
    http_server(const http_options& options, handler answer);
    /// Cuts all connections. Handlers and readers that wait must have been woken before.
    ~http_server();
    http_server(const http_server&) = delete;
    http_server& operator=(const http_server&) = delete;

    int port() const;
    /// Cuts connections that took too long over a request or an answer. To be called every second.
    void close_overdue();

private:
    class running;
    std::unique_ptr<running> running_;
};

} // namespace exporter

#endif
