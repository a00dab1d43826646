// A server that answers whatever a test tells it to.
#include "scripted_server.h"

#include <cstring>
#include <stdexcept>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>
#include <zmq.h>

// The library leaves sockets open by design, and ZeroMQ's threads outlive main.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libzmq\n";
}

std::string packet(int sub_command, const std::string& payload, const packet_options& how) {
    data_struct header{};
    header.sub_command = sub_command;
    header.msg_len =
        how.negative || how.msg_len != -1 ? how.msg_len : static_cast<int>(payload.size());
    header.crc = how.crc;
    std::string bytes(reinterpret_cast<const char*>(&header), frame_header_size);
    bytes += payload;
    const char filler = bytes.size() < how.size && how.size > answer_frame_size ? 'x' : '\0';
    bytes.resize(how.size, filler);
    return bytes;
}

std::string error_packet(int sub_command, int code) {
    packet_options how;
    how.msg_len = code;
    how.negative = true;
    return packet(sub_command, "", how);
}

data_struct header_of(const std::string& frame) {
    data_struct header{};
    std::memcpy(&header, frame.data(), std::min<std::size_t>(frame.size(), frame_header_size));
    return header;
}

void close_at_once(client_comm& connection) {
    const int linger_ms = 0;
    if (connection.get_socket() == nullptr)
        return;
    zmq_setsockopt(connection.get_socket(), ZMQ_LINGER, &linger_ms, sizeof linger_ms);
    connection.close_connect();
}

scripted_server::scripted_server(int port)
    : context_(zmq_ctx_new()), socket_(zmq_socket(context_, ZMQ_ROUTER)),
      stop_event_(eventfd(0, EFD_CLOEXEC)) {
    // What an earlier server of this process granted says nothing here.
    client_comm::client_id = 0;
    const std::string where = port == 0 ? "*" : std::to_string(port);
    if (zmq_bind(socket_, ("tcp://127.0.0.1:" + where).c_str()) != 0)
        throw std::runtime_error(zmq_strerror(zmq_errno()));
    char bound[64];
    std::size_t size = sizeof bound;
    zmq_getsockopt(socket_, ZMQ_LAST_ENDPOINT, bound, &size);
    port_ = std::stoi(std::strrchr(bound, ':') + 1);
    thread_ = std::thread([this] { serve(); });
}

scripted_server::~scripted_server() {
    eventfd_write(stop_event_, 1);
    thread_.join();
    const int linger_ms = 0;
    zmq_setsockopt(socket_, ZMQ_LINGER, &linger_ms, sizeof linger_ms);
    zmq_close(socket_);
    zmq_ctx_term(context_);
    close(stop_event_);
}

std::shared_ptr<client_comm> scripted_server::connect(bool whole) const {
    auto connection = std::make_shared<client_comm>("127.0.0.1", port_);
    connection->stop_at_last_part(whole);
    if (connection->connect_to_server() != 0)
        throw std::runtime_error("scripted server: no connection");
    return connection;
}

void scripted_server::next(answer_packets packets) {
    std::lock_guard<std::mutex> guard(lock_);
    queue_.push_back(std::move(packets));
}

void scripted_server::answer(script how) {
    std::lock_guard<std::mutex> guard(lock_);
    script_ = std::move(how);
}

std::vector<std::string> scripted_server::take_all_requests() {
    std::lock_guard<std::mutex> guard(lock_);
    return std::exchange(requests_, {});
}

std::vector<std::string> scripted_server::take_requests() {
    std::vector<std::string> wanted;
    for (std::string& request : take_all_requests())
        if (header_of(request).command != client_id_command)
            wanted.push_back(std::move(request));
    return wanted;
}

answer_packets scripted_server::answer_to(const std::string& request) {
    const data_struct header = header_of(request);
    std::lock_guard<std::mutex> guard(lock_);
    requests_.push_back(request);
    if (header.command == client_id_command && !scripted_handshake_)
        return {packet(header.sub_command, std::string(1, static_cast<char>(granted_id)))};
    if (!queue_.empty()) {
        answer_packets packets = std::move(queue_.front());
        queue_.pop_front();
        return packets;
    }
    if (script_)
        return script_(header.command, header.sub_command, request);
    return {packet(header.sub_command, "")};
}

void scripted_server::serve() {
    zmq_pollitem_t items[] = {{socket_, 0, ZMQ_POLLIN, 0}, {nullptr, stop_event_, ZMQ_POLLIN, 0}};
    for (;;) {
        zmq_poll(items, 2, -1);
        if (items[1].revents != 0)
            return;
        std::vector<std::string> message;
        for (int more = 1; more != 0;) {
            char part[65536];
            const int n = zmq_recv(socket_, part, sizeof part, 0);
            message.emplace_back(part, static_cast<std::size_t>(n));
            std::size_t size = sizeof more;
            zmq_getsockopt(socket_, ZMQ_RCVMORE, &more, &size);
        }
        const answer_packets packets = answer_to(message.back());
        if (packets.empty())
            continue;
        zmq_send(socket_, message[0].data(), message[0].size(), ZMQ_SNDMORE);
        zmq_send(socket_, "", 0, ZMQ_SNDMORE);
        for (std::size_t i = 0; i < packets.size(); ++i)
            zmq_send(socket_, packets[i].data(), packets[i].size(),
                     i + 1 < packets.size() ? ZMQ_SNDMORE : 0);
    }
}
