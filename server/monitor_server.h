// The monitoring server: answers the requests of `client_comm` from this host's kernel.
//
//     monsrv::monitor_server server({});
//     int port = server.bind("127.0.0.1", 0);
//     std::thread answering([&] { server.run(); });
//     ...
//     server.stop();
//     answering.join();
#ifndef MONSRV_MONITOR_SERVER_H
#define MONSRV_MONITOR_SERVER_H

#include "client_ids.h"
#include "host.h"
#include "sampler.h"

#include <memory>
#include <string>

namespace monsrv {

/// What a server samples.
struct server_options {
    std::string root = "/";      ///< folder to read in place of /
    bool simulate_board = false; ///< answer for hardware the host lacks
    std::uint32_t seed = 1;      ///< of the simulated board
};

/// ADDRESS:PORT, an IPv6 address in brackets.
std::string endpoint_text(const std::string& address, const std::string& port);

/// One server; owns its socket. `bind` and `run` belong to one thread, `stop` may be called from
/// any thread and from a signal handler.
class monitor_server {
public:
    /// @throws std::system_error if the process is out of descriptors
    explicit monitor_server(const server_options& options);
    ~monitor_server();
    monitor_server(const monitor_server&) = delete;
    monitor_server& operator=(const monitor_server&) = delete;

    /// Listens at tcp://@p address : @p port.
    /// @param address an IPv4 or IPv6 address, the latter with or without brackets, an interface,
    ///                or "*" for all addresses of both families
    /// @param port 0 picks a free one
    /// @return the port
    /// @throws std::system_error if that fails
    int bind(const std::string& address, int port);
    /// Answers requests until `stop`.
    /// @throws std::system_error if the socket fails for good
    void run();
    /// Ends `run`, or keeps it from starting. Async-signal-safe.
    void stop();

private:
    struct sockets;

    void take_request();
    void answer(const unsigned char* frame, std::size_t size);
    int dispatch(const data_struct& header, const unsigned char* payload, reply& answer);
    void send(const data_struct& header, int result, const reply& answer);

    host env_;
    sampler_table samplers_;
    client_ids ids_;
    std::unique_ptr<sockets> sockets_;
};

} // namespace monsrv

#endif
