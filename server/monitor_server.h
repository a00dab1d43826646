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
#include "connections.h"
#include "curve_access.h"
#include "listener.h"
#include "sampler.h"
#include "server_counts.h"
#include "slow_requests.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace monsrv {

/// Encryption of all connections.
struct curve_options {
    curve_key_pair keys;    ///< the server's own
    std::string allow_file; ///< lists the public keys of the clients that may connect
};

/// What a server samples, and for whom.
struct server_options {
    std::string root = "/";      ///< folder to read in place of /
    bool simulate_board = false; ///< answer for hardware the host lacks
    std::uint32_t seed = 1;      ///< of the simulated board

    int max_clients = 256;                          ///< connections at once, 1 or more
    std::optional<curve_options> curve{};           ///< the wire is plain without
    std::chrono::milliseconds handshake_time{5000}; ///< a new peer that takes longer is cut off
    /// How often a peer is asked for a sign of life; one that gives none for twice this time more
    /// is cut off.
    std::chrono::milliseconds heartbeat_period{10000};
};

/// One server; owns its socket. `bind` and `run` belong to one thread, `stop` and
/// `read_keys_again` may be called from any thread and from a signal handler, `counts` from any
/// thread.
///
/// A client's requests are answered in order. One that takes long holds up that client's next, and
/// nobody else's.
class monitor_server {
public:
    /// @throws std::exception if the process is out of descriptors, or encryption is wanted and
    ///         cannot be had
    explicit monitor_server(const server_options& options);
    ~monitor_server();
    monitor_server(const monitor_server&) = delete;
    monitor_server& operator=(const monitor_server&) = delete;

    /// Listens at @p where, to be called once.
    /// @param text the address as a user wrote it, for error messages
    /// @return the port
    /// @throws std::system_error if that fails
    int bind(const listen_address& where, const std::string& text);
    /// Listens at what `find_listen_address` finds.
    /// @throws std::exception if that fails
    int bind(const std::string& address, int port);
    /// Answers requests until `stop`.
    /// @throws std::system_error if the socket fails for good
    void run();
    /// Ends `run`, or keeps it from starting. Async-signal-safe.
    void stop();
    /// Lets `run` read the file of allowed keys again, and cut off the clients that are not in it
    /// any more. Does nothing without encryption. Async-signal-safe.
    void read_keys_again();
    server_counts counts() const;
    /// Lets `run` call @p call every @p period, at least 1 ms, and late by as much as a handler
    /// takes in its loop. To be called before `run`.
    void call_every(std::chrono::milliseconds period, std::function<void()> call);

private:
    struct sockets;

    struct message;

    void call_if_due();
    void wake();
    int poll_timeout() const;
    void look_after_connections();
    void drop_refused_clients();
    void peer_gone(const std::string& peer);
    void take_messages();
    void take_message();
    bool may_ask(const message& received);
    void take(const std::string& peer, std::string frame);
    void answer(const std::string& peer, std::string frame);
    int answer_about_ids(const std::string& peer, const data_struct& header,
                         const unsigned char* payload, reply& answer);
    int run_in_loop(const std::string& peer, const answering& found, const data_struct& header,
                    const unsigned char* payload, reply& answer);
    void forget(std::uint8_t id);
    void send_slow_answers();
    void send(const std::string& peer, const data_struct& header, int result, const reply& answer);

    std::shared_ptr<const sampled_machine> machine_;
    slow_requests slow_;
    // Clients with a slow request in progress, and their requests after it.
    std::map<std::string, std::deque<std::string>> busy_;
    client_ids ids_;
    std::map<std::string, std::string> keys_; // of encrypted clients, by peer
    std::atomic<bool> stopping_{false};
    std::atomic<bool> reading_keys_{false};
    std::atomic<std::uint64_t> requests_{0};
    std::atomic<std::uint64_t> refused_{0};
    std::atomic<std::uint64_t> slow_requests_{0};
    std::atomic<std::uint64_t> malformed_{0};
    std::atomic<std::uint64_t> dropped_requests_{0};
    std::atomic<std::uint64_t> dropped_answers_{0};
    std::function<void()> regular_call_; // may be empty
    std::chrono::milliseconds call_period_{0};
    std::chrono::steady_clock::time_point next_call_{};
    std::atomic<std::uint64_t> refused_connections_{0};
    std::atomic<std::uint64_t> connections_{0};
    std::atomic<std::uint64_t> held_ids_{0};
    std::unique_ptr<sockets> sockets_;
};

} // namespace monsrv

#endif
