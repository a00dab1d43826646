// The connection to the monitoring server.
#include "client_comm.h"

#include "platform_log.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>
#include <zmq.h>

namespace {
constexpr const char* tag = "MONCL_COMM";
constexpr std::size_t send_buffer_size = sizeof(data_struct) + request_payload_max;

template<class... Args>
void log_error(const char* format, Args... args) {
    __android_log_print(ANDROID_LOG_ERROR, tag, format, args...);
}

void log_zmq_error(const char* format) {
    log_error(format, zmq_strerror(errno));
}

unsigned long in_us(const timeval& time) {
    return static_cast<unsigned long>(time.tv_sec) * 1000000 +
           static_cast<unsigned long>(time.tv_usec);
}
} // namespace

std::uint8_t client_comm::client_id = 0;

client_comm::frame client_comm::new_frame(std::size_t size) {
    if (void* bytes = std::calloc(1, size))
        return frame(static_cast<data_struct*>(bytes));
    throw std::bad_alloc();
}

client_comm::client_comm(std::string ip, int server_port)
    : send_data(new_frame(send_buffer_size)), recv_data(new_frame(answer_frame_size)),
      ip_addr(std::move(ip)), port(server_port), timeout(1000) {}

client_comm::~client_comm() {
    back_client_id();
}

void client_comm::allow_ipv6(bool on) {
    ipv6 = on;
}

int client_comm::connect_to_server() {
    str_target = "tcp://" + ip_addr + ":" + std::to_string(port);
    refused = false;
    socket = nullptr;
    context = zmq_ctx_new();
    if (context == nullptr) {
        log_zmq_error("zmq_ctx_new error, %s\n");
        return -1;
    }
    socket = zmq_socket(context, ZMQ_REQ);
    if (socket == nullptr) {
        log_zmq_error("zmq_socket error, %s\n");
        zmq_ctx_term(std::exchange(context, nullptr));
        return -2;
    }
    if (ipv6) {
        const int on = 1;
        zmq_setsockopt(socket, ZMQ_IPV6, &on, sizeof on);
    }
    if (zmq_connect(socket, str_target.c_str()) == -1) {
        log_zmq_error("zmq_connect error, %s\n");
        // A request socket without a peer would only refuse to send.
        close_connect();
        return -3;
    }
    return req_client_id();
}

std::uint8_t& client_comm::held_id() {
    return keeps_own_id ? own_id : client_id;
}

int client_comm::req_client_id() {
    if (held_id() != 0)
        return 0;
    const unsigned char none[4] = {};
    int r = send_msg_to_server(client_id_command, client_id_request::ask, none, sizeof none);
    if (r < 0) {
        log_error("Send request id failed %d\n", r);
        return r;
    }
    r = recv_msg_from_server();
    if (r < 0) {
        log_error("Recv request id failed %d\n", r);
        return r;
    }
    held_id() = recv_data->msg[0];
    if (held_id() == 0)
        log_error("%s", "Recv client_id is Unavailable\n");
    __android_log_print(ANDROID_LOG_INFO, tag, "Client get new id %d\n", held_id());
    return 0;
}

int client_comm::back_client_id() {
    const unsigned char id = held_id();
    if (id == 0)
        return 0;
    __android_log_print(ANDROID_LOG_INFO, tag, "Client back id %d\n", id);
    int r = send_msg_to_server(client_id_command, client_id_request::give_back, &id, 1);
    if (r < 0) {
        log_error("Send back id failed %d\n", r);
        return r;
    }
    r = recv_msg_from_server();
    if (r < 0) {
        log_error("Back request id failed %d\n", r);
        return r;
    }
    held_id() = 0;
    return 0;
}

int client_comm::send_msg_to_server(int command, int sub_command, const unsigned char* msg,
                                    unsigned int len) {
    refused = false;
    if (len > request_payload_max) {
        log_error("client_comm send support max len is %d\n", request_payload_max);
        return -1;
    }
    send_data->command = command;
    send_data->sub_command = sub_command;
    send_data->msg_len = static_cast<std::int32_t>(len);
    send_data->client_id = held_id();
    if (len > 0)
        std::memcpy(send_data->msg, msg, len);
    send_data->msg_type = '0';
    send_data->command_type = '0';
    send_data->sum_packet = 0;
    send_data->cur_packet = 0;
    send_data->crc = crc32(send_data->msg, static_cast<int>(len), crc_32_MPEG2);
    gettimeofday(&send_data->time, nullptr);
    // A peer whose bytes made no sense is gone for good: a send that waits for one would never end.
    if (zmq_send(socket, send_data.get(), sizeof(data_struct) + len, ZMQ_DONTWAIT) == -1) {
        log_zmq_error("zmq_send error, %s\n");
        return -2;
    }
    return 0;
}

// Takes one packet into the receive buffer and zeroes what it did not carry of the payload, and the
// bytes behind it, so that text always ends and nothing of an earlier answer shows through.
int client_comm::receive_frame() {
    int n = zmq_recv(socket, recv_data.get(), answer_frame_size, 0);
    gettimeofday(&recv_data->time, nullptr);
    if (n == -1) {
        log_zmq_error("zmq_recv error, %s\n");
        return -1;
    }
    const int carried = std::clamp(n - frame_header_size, 0, answer_payload_max);
    std::memset(recv_data->msg + carried, 0,
                static_cast<std::size_t>(answer_frame_size - frame_header_size - carried));
    if (n < frame_header_size) {
        log_error("zmq_recv error, frame of %d bytes is shorter than its header\n", n);
        return -1;
    }
    return n;
}

bool client_comm::checksum_matches() const {
    unsigned int computed = crc32(recv_data->msg, answer_payload_max, crc_32_MPEG2);
    if (recv_data->crc == computed)
        return true;
    log_error("crc error, compute crc is %d , receive crc is %d\n", static_cast<int>(computed),
              static_cast<int>(recv_data->crc));
    return false;
}

int client_comm::recv_msg_from_server() {
    // Without a socket the poll looks at the descriptor; -1 makes it wait for nothing.
    zmq_pollitem_t item{socket, -1, ZMQ_POLLIN, 0};
    int r = zmq_poll(&item, 1, timeout);
    if ((item.revents & ZMQ_POLLIN) == 0) {
        if (r == -1) {
            log_zmq_error("zmq_poll failed, %s\n");
            return -2;
        }
        log_error("zmq_poll timeout, please check connection with %s:%d\n", ip_addr.c_str(), port);
        return -3;
    }
    int n = receive_frame();
    if (n < 0)
        return n;
    if (!checksum_matches())
        return -4;
    int used = recv_data->msg_len;
    if (used < 0) {
        refused = true;
        log_error("Handle request return %d\n", used);
        return used;
    }
    if (used < answer_payload_max)
        std::memset(recv_data->msg + used, 0, static_cast<std::size_t>(answer_payload_max - used));
    return n;
}

int client_comm::recv_more_msg(unsigned char* buf, int len) {
    more_len = 0;
    bool last = false;
    for (;;) {
        if (len - more_len < answer_payload_max) {
            log_error("answer does not fit into %d bytes\n", len);
            return -1;
        }
        std::memcpy(buf + more_len, recv_data->msg, answer_payload_max);
        more_len += answer_payload_max;
        if (last)
            return 0;
        // The flag is of the part taken in last. By default one more receive follows the part that
        // has it unset, and callers rely on the outcome of that receive.
        int more = 0;
        std::size_t more_size = sizeof more;
        zmq_getsockopt(socket, ZMQ_RCVMORE, &more, &more_size);
        last = more == 0;
        if (last && stop_at_last)
            return 0;
        if (receive_frame() < 0) {
            std::memset(recv_data->msg, 0, answer_payload_max);
            return -1;
        }
        if (!checksum_matches())
            return -1;
    }
}

bool client_comm::was_refused() const {
    return refused;
}

void client_comm::keep_own_id() {
    keeps_own_id = true;
}

int client_comm::get_more_len() const {
    return more_len;
}

void client_comm::stop_at_last_part(bool on) {
    stop_at_last = on;
}

int client_comm::close_connect() {
    // A context without a socket is left by a call whose termination of it failed.
    const bool socket_is_closed = socket == nullptr && context != nullptr;
    if (!socket_is_closed && zmq_close(socket) == -1) {
        log_zmq_error("zmq_close error, %s\n");
        return -1;
    }
    socket = nullptr;
    if (zmq_ctx_term(context) == -1) {
        log_zmq_error("zmq_ctx_term error, %s\n");
        return -1;
    }
    context = nullptr;
    return 0;
}

unsigned long client_comm::get_send_time_us() {
    return in_us(send_data->time);
}

unsigned long client_comm::get_recv_time_us() {
    return in_us(recv_data->time);
}

void* client_comm::get_socket() {
    return socket;
}

data_struct* client_comm::get_recv_data() {
    return recv_data.get();
}

data_struct* client_comm::get_send_data() {
    return send_data.get();
}
