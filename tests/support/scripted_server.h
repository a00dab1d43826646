// A server on a free loopback port that answers whatever a test tells it to, and records the
// requests byte for byte.
#ifndef MONCL_TESTS_SCRIPTED_SERVER_H
#define MONCL_TESTS_SCRIPTED_SERVER_H

#include "client_comm.h"

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// The packets of one answer; none at all: silence.
using answer_packets = std::vector<std::string>;

/// What may be wrong with a packet.
struct packet_options {
    int msg_len = -1;      ///< -1: the payload's length
    bool negative = false; ///< take `msg_len` as it is, -1 included
    unsigned int crc = 0;
    std::size_t size = 8240; ///< bytes sent; shorter cuts, longer pads with 'x'
};

/// One answer packet as the server would send it.
std::string packet(int sub_command, const std::string& payload, const packet_options& how = {});
/// A packet whose `msg_len` is a server's error code.
std::string error_packet(int sub_command, int code);

/// The header of a recorded request.
data_struct header_of(const std::string& frame);

/// Answers the client-id handshake by itself (with `granted_id`) unless told otherwise.
class scripted_server {
public:
    using script =
        std::function<answer_packets(int command, int sub_command, const std::string& request)>;

    explicit scripted_server(int port = 0);
    ~scripted_server();
    scripted_server(const scripted_server&) = delete;
    scripted_server& operator=(const scripted_server&) = delete;

    int port() const { return port_; }
    /// A connection to this server, connected; further parts end at the last one if @p whole.
    std::shared_ptr<client_comm> connect(bool whole = false) const;
    /// Queues the answer to a request other than the handshake. Without any, @p script or a packet
    /// of zeros answers.
    void next(answer_packets packets);
    void next_text(int sub_command, const std::string& text) { next({packet(sub_command, text)}); }
    /// Answers what has no queued answer.
    void answer(script how);
    /// Answers the handshake too by queue and script.
    void script_handshake() { scripted_handshake_ = true; }
    /// Requests other than the handshake since the last call.
    std::vector<std::string> take_requests();
    /// All requests since the last call.
    std::vector<std::string> take_all_requests();

    unsigned char granted_id = 7;

private:
    void serve();
    answer_packets answer_to(const std::string& request);

    void* context_;
    void* socket_;
    int port_;
    int stop_event_;
    std::mutex lock_;
    std::vector<std::string> requests_;
    std::deque<answer_packets> queue_;
    script script_;
    bool scripted_handshake_ = false;
    std::thread thread_;
};

/// Closes @p connection's socket without waiting for what is unsent, as a front end does that
/// starts over.
void close_at_once(client_comm& connection);

#endif
