// A server on a free loopback port that answers whatever a test tells it to, and records the
// requests byte for byte.
#ifndef MONCL_TESTS_SCRIPTED_SERVER_H
#define MONCL_TESTS_SCRIPTED_SERVER_H

#include "recovery.h"

#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>
#include <zmq.h>

/// The packets of one answer; none at all: silence.
using answer_packets = std::vector<std::string>;

/// One answer packet of 8240 bytes, true or not about its length and checksum.
inline std::string packet(int sub_command, const std::string& payload, int msg_len,
                          unsigned crc = 0) {
    data_struct header{};
    header.sub_command = sub_command;
    header.msg_len = msg_len;
    header.crc = crc;
    std::string bytes(reinterpret_cast<const char*>(&header), frame_header_size);
    (bytes += payload).resize(answer_frame_size);
    return bytes;
}
/// One answer packet as the server would send it.
inline std::string packet(int sub_command, const std::string& payload) {
    return packet(sub_command, payload, static_cast<int>(payload.size()));
}
/// A packet whose `msg_len` is a server's error code.
inline std::string error_packet(int sub_command, int code) {
    return packet(sub_command, "", code);
}

/// The header of a recorded request.
inline data_struct header_of(const std::string& frame) {
    data_struct header{};
    std::memcpy(&header, frame.data(), std::min<std::size_t>(frame.size(), frame_header_size));
    return header;
}

/// A connection to a server at @p port of this machine, connected; further parts end at the last
/// one if @p whole.
inline std::shared_ptr<client_comm> connect_to(int port, bool whole) {
    auto connection = std::make_shared<client_comm>("127.0.0.1", port);
    connection->stop_at_last_part(whole);
    if (connection->connect_to_server() != 0)
        throw std::runtime_error("no connection");
    return connection;
}

/// Answers the client-id handshake by itself, with `granted_id`.
class scripted_server {
public:
    using script =
        std::function<answer_packets(int command, int sub_command, const std::string& request)>;

    /// @param prepare sets options of the socket before it listens
    explicit scripted_server(const std::function<void(void* context, void* socket)>& prepare = {}) {
        client_comm::client_id = 0; // of an earlier server of this process
        if (prepare)
            prepare(context_, socket_);
        char bound[64];
        std::size_t size = sizeof bound;
        const int linger_ms = 0;
        zmq_setsockopt(socket_, ZMQ_LINGER, &linger_ms, sizeof linger_ms);
        zmq_bind(socket_, "tcp://127.0.0.1:*");
        zmq_getsockopt(socket_, ZMQ_LAST_ENDPOINT, bound, &size);
        port_ = std::stoi(std::strrchr(bound, ':') + 1);
        thread_ = std::thread([this] { serve(); });
    }
    ~scripted_server() {
        zmq_ctx_shutdown(context_);
        thread_.join();
        zmq_ctx_term(context_);
    }

    int port() const { return port_; }
    std::shared_ptr<client_comm> connect(bool whole = false) const {
        return connect_to(port_, whole);
    }
    /// Queues the answer to a request. Without any, the script or a packet of zeros answers.
    void next(answer_packets packets) {
        std::lock_guard<std::mutex> guard(lock_);
        queue_.push_back(std::move(packets));
    }
    void next_text(int sub_command, const std::string& text) { next({packet(sub_command, text)}); }
    /// Answers what has no queued answer; to be set before the first request.
    void answer(script how) {
        std::lock_guard<std::mutex> guard(lock_);
        script_ = std::move(how);
    }
    /// All requests since the last call, or all but the handshake.
    std::vector<std::string> take_requests(bool handshake = false) {
        std::lock_guard<std::mutex> guard(lock_);
        std::vector<std::string> wanted;
        for (std::string& request : std::exchange(requests_, {}))
            if (handshake || header_of(request).command != client_id_command)
                wanted.push_back(std::move(request));
        return wanted;
    }

    int granted_id = 7; ///< if negative, queue and script answer the handshake too

private:
    answer_packets answer_to(const std::string& request) {
        const data_struct header = header_of(request);
        std::lock_guard<std::mutex> guard(lock_);
        requests_.push_back(request);
        if (header.command == client_id_command && granted_id >= 0)
            return {packet(header.sub_command, std::string(1, static_cast<char>(granted_id)))};
        if (queue_.empty())
            return script_(header.command, header.sub_command, request);
        answer_packets packets = std::move(queue_.front());
        queue_.pop_front();
        return packets;
    }

    void serve() {
        char peer[256];
        char part[65536];
        for (int name; (name = zmq_recv(socket_, peer, sizeof peer, 0)) >= 0;) {
            zmq_recv(socket_, part, sizeof part, 0); // the delimiter; then the request
            const int n = zmq_recv(socket_, part, sizeof part, 0);
            const answer_packets packets = answer_to({part, static_cast<std::size_t>(n)});
            if (packets.empty())
                continue;
            zmq_send(socket_, peer, static_cast<std::size_t>(name), ZMQ_SNDMORE);
            zmq_send(socket_, "", 0, ZMQ_SNDMORE);
            for (const std::string& each : packets)
                zmq_send(socket_, each.data(), each.size(),
                         &each == &packets.back() ? 0 : ZMQ_SNDMORE);
        }
        zmq_close(socket_);
    }

    void* context_ = zmq_ctx_new();
    void* socket_ = zmq_socket(context_, ZMQ_ROUTER);
    int port_ = 0;
    std::mutex lock_;
    std::vector<std::string> requests_;
    std::deque<answer_packets> queue_;
    script script_ = [](int, int sub, const std::string&) -> answer_packets {
        return {packet(sub, "")};
    };
    std::thread thread_;
};

#endif
