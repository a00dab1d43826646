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
#include "sampler.h"
#include "slow_requests.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
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

/// What a server did not answer, since it was constructed.
struct server_counts {
    std::uint64_t malformed;        ///< messages that are no request: no delimiter or no frame
    std::uint64_t dropped_requests; ///< of clients that had too many waiting, or for want of memory
    std::uint64_t dropped_answers;  ///< to clients that did not read those before
};

/// One server; owns its socket. `bind` and `run` belong to one thread, `stop` may be called from
/// any thread and from a signal handler, `counts` from any thread.
///
/// A client's requests are answered in order. One that takes long holds up that client's next, and
/// nobody else's.
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
    server_counts counts() const;
    /// Lets `run` call @p call every @p period, at least 1 ms, and late by as much as a handler
    /// takes in its loop. To be called before `run`.
    void call_every(std::chrono::milliseconds period, std::function<void()> call);

private:
    struct sockets;

    void call_if_due();
    void take_request();
    void take(const std::string& peer, std::string frame);
    void answer(const std::string& peer, std::string frame);
    int answer_about_ids(const data_struct& header, const unsigned char* payload, reply& answer);
    void client_gone(std::uint8_t id);
    void send_slow_answers();
    void send(const std::string& peer, const data_struct& header, int result, const reply& answer);

    std::shared_ptr<const sampled_machine> machine_;
    slow_requests slow_;
    // Clients with a slow request in progress, and their requests after it.
    std::map<std::string, std::deque<std::string>> busy_;
    client_ids ids_;
    std::atomic<std::uint64_t> malformed_{0};
    std::atomic<std::uint64_t> dropped_requests_{0};
    std::atomic<std::uint64_t> dropped_answers_{0};
    std::function<void()> regular_call_; // may be empty
    std::chrono::milliseconds call_period_{-1};
    std::chrono::steady_clock::time_point next_call_{};
    std::unique_ptr<sockets> sockets_;
};

} // namespace monsrv

#endif
