// The connection to the monitoring server.
#include "client_comm.h"

#include "handshake_watch.h"
#include "platform_log.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
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

template<class Value>
bool set_option(void* socket, int option, const Value& value) {
    return zmq_setsockopt(socket, option, &value, sizeof value) == 0;
}

// Sets one of the keys. libzmq would take a text of 31 characters for 32 bytes of a key.
bool set_key(void* socket, int option, const std::string& key) {
    constexpr std::size_t key_characters = 40;
    if (key.size() != key_characters) {
        errno = EINVAL;
        return false;
    }
    return zmq_setsockopt(socket, option, key.c_str(), key.size() + 1) == 0;
}

bool set_keys(void* socket, const std::string& own, const std::string& server) {
    char own_public[41]; // with its zero byte
    return set_key(socket, ZMQ_CURVE_SECRETKEY, own) &&
           zmq_curve_public(own_public, own.c_str()) == 0 &&
           set_key(socket, ZMQ_CURVE_PUBLICKEY, own_public) &&
           set_key(socket, ZMQ_CURVE_SERVERKEY, server);
}

// What is logged of a handshake that failed; null if it did not.
const char* reason_of(handshake outcome) {
    switch (outcome) {
    case handshake::needs_encryption:
        return "the server takes encrypted connections only";
    case handshake::not_encrypted:
        return "the server is not encrypted";
    case handshake::key_refused:
        return "the server refuses this key";
    case handshake::broken_off:
        return "the server broke it off: has it another key?";
    case handshake::failed:
        return "what the server sent is no handshake";
    default:
        return nullptr;
    }
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
      ip_addr(std::move(ip)), port(server_port), timeout(1000),
      watch(std::make_unique<handshake_watch>()) {}

client_comm::~client_comm() {
    back_client_id();
}

void client_comm::allow_ipv6(bool on) {
    ipv6 = on;
}

void client_comm::encrypt(const std::string& secret_key, const std::string& server_key) {
    encrypted = !secret_key.empty() || !server_key.empty();
    own_key = secret_key;
    server_public_key = server_key;
}

void client_comm::limit_message(std::int64_t bytes) {
    message_max = bytes;
}

void client_comm::send_heartbeats(int interval_ms, int timeout_ms) {
    heartbeat_interval = interval_ms;
    heartbeat_timeout = timeout_ms;
}

void client_comm::watch_handshake(bool on) {
    watches_handshake = on;
}

handshake client_comm::last_handshake() {
    return watch->read();
}

void client_comm::wait_through_signals(bool on) {
    outlasts_signals = on;
}

// Sets what was asked for, and nothing else.
bool client_comm::set_options() {
    return (!ipv6 || set_option(socket, ZMQ_IPV6, 1)) &&
           (message_max == 0 || set_option(socket, ZMQ_MAXMSGSIZE, message_max)) &&
           (heartbeat_interval == 0 ||
            (set_option(socket, ZMQ_HEARTBEAT_IVL, heartbeat_interval) &&
             set_option(socket, ZMQ_HEARTBEAT_TIMEOUT, heartbeat_timeout))) &&
           (!encrypted || set_keys(socket, own_key, server_public_key)) &&
           (!(encrypted || watches_handshake) || watch->start(context, socket, encrypted));
}

int client_comm::connect_to_server() {
    str_target = "tcp://" + ip_addr + ":" + std::to_string(port);
    refused = false;
    watch->stop(); // of a socket that is left open
    watch->outcome = handshake::unknown;
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
    if (!set_options()) {
        // Without its keys the connection would be a plain one.
        log_zmq_error("zmq_setsockopt error, %s\n");
        close_connect();
        return -2;
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
        log_handshake();
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

// @return more than 0 if there is an answer, 0 at the time-out, -1 if the poll failed
int client_comm::wait_for_answer() {
    using clock = std::chrono::steady_clock;
    // Without a socket the poll looks at the descriptor; -1 makes it wait for nothing.
    zmq_pollitem_t item{socket, -1, ZMQ_POLLIN, 0};
    const auto end = clock::now() + std::chrono::milliseconds(timeout);
    long left_ms = timeout;
    for (;;) {
        const int r = zmq_poll(&item, 1, left_ms);
        if ((item.revents & ZMQ_POLLIN) != 0)
            return 1;
        if (r != -1 || errno != EINTR || !outlasts_signals)
            return r == -1 ? -1 : 0;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - clock::now());
        left_ms = std::max<long>(left.count(), 0);
    }
}

// Logs why no answer can come, if that is known. Nothing more is to be learned over this socket,
// which has to be replaced.
void client_comm::log_handshake() {
    const char* reason = reason_of(watch->read());
    watch->stop();
    if (reason == nullptr)
        return;
    if (watch->status != 0)
        log_error("handshake failed, %s, status %d\n", reason, watch->status);
    else
        log_error("handshake failed, %s\n", reason);
}

int client_comm::recv_msg_from_server() {
    const int waited = wait_for_answer();
    if (waited < 0) {
        log_zmq_error("zmq_poll failed, %s\n");
        return -2;
    }
    if (waited == 0) {
        log_error("zmq_poll timeout, please check connection with %s:%d\n", ip_addr.c_str(), port);
        log_handshake();
        return -3;
    }
    watch->note_answer();
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
    watch->stop();
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
