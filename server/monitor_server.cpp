// The server's socket loop and the frames it takes and sends.
#include "monitor_server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <zmq.h>

namespace monsrv {

namespace {
// Far above any request; a peer that sends more is cut off by the transport.
constexpr std::int64_t largest_message = 65536;

// ZeroMQ has error numbers of its own, which only its own function can name.
class zmq_category final : public std::error_category {
public:
    const char* name() const noexcept override { return "zmq"; }
    std::string message(int error) const override { return zmq_strerror(error); }
    std::error_condition default_error_condition(int error) const noexcept override {
        return std::generic_category().default_error_condition(error);
    }
};

[[noreturn]] void fail(int error, const std::string& what) {
    static const zmq_category category;
    throw std::system_error(error, category, what);
}
} // namespace

struct monitor_server::sockets {
    sockets() {
        if (context == nullptr || reply_socket == nullptr || stop_event == -1) {
            const int error = errno;
            close_all();
            fail(error, "monsrv");
        }
        const int linger_ms = 0;
        zmq_setsockopt(reply_socket, ZMQ_LINGER, &linger_ms, sizeof linger_ms);
        zmq_setsockopt(reply_socket, ZMQ_MAXMSGSIZE, &largest_message, sizeof largest_message);
    }
    ~sockets() { close_all(); }
    sockets(const sockets&) = delete;
    sockets& operator=(const sockets&) = delete;

    void* context = zmq_ctx_new();
    void* reply_socket = context != nullptr ? zmq_socket(context, ZMQ_REP) : nullptr;
    int stop_event = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);

private:
    void close_all() {
        if (reply_socket != nullptr)
            zmq_close(reply_socket);
        if (context != nullptr)
            zmq_ctx_term(context);
        if (stop_event != -1)
            close(stop_event);
    }
};

monitor_server::monitor_server(const server_options& options)
    : env_(options.root,
           options.simulate_board ? std::optional<simulated_board>(options.seed) : std::nullopt),
      sockets_(std::make_unique<sockets>()) {
    install_samplers(samplers_, env_);
}

monitor_server::~monitor_server() = default;

std::string endpoint_text(const std::string& address, const std::string& port) {
    const bool bare_ipv6 = address.find(':') != address.npos && address.front() != '[';
    return (bare_ipv6 ? "[" + address + "]" : address) + ":" + port;
}

int monitor_server::bind(const std::string& address, int port) {
    const int ipv6 = address == "*" || address.find(':') != address.npos;
    zmq_setsockopt(sockets_->reply_socket, ZMQ_IPV6, &ipv6, sizeof ipv6);
    const std::string endpoint =
        "tcp://" + endpoint_text(address, port == 0 ? "*" : std::to_string(port));
    if (zmq_bind(sockets_->reply_socket, endpoint.c_str()) == -1)
        fail(zmq_errno(), "cannot listen at " + endpoint_text(address, std::to_string(port)));
    char bound[256];
    std::size_t size = sizeof bound;
    if (zmq_getsockopt(sockets_->reply_socket, ZMQ_LAST_ENDPOINT, bound, &size) == -1)
        fail(zmq_errno(), "cannot tell the port");
    return std::stoi(std::strrchr(bound, ':') + 1);
}

void monitor_server::stop() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t n = write(sockets_->stop_event, &one, sizeof one);
}

void monitor_server::run() {
    zmq_pollitem_t items[] = {{sockets_->reply_socket, 0, ZMQ_POLLIN, 0},
                              {nullptr, sockets_->stop_event, ZMQ_POLLIN, 0}};
    for (;;) {
        if (zmq_poll(items, 2, -1) == -1 && errno != EINTR)
            fail(zmq_errno(), "monsrv");
        if (items[1].revents != 0)
            break;
        if (items[0].revents != 0)
            take_request();
    }
    std::uint64_t count;
    [[maybe_unused]] const ssize_t n = read(sockets_->stop_event, &count, sizeof count);
}

// Receives one request with all its parts and answers its first; every request must be answered, or
// the socket takes no other.
void monitor_server::take_request() {
    zmq_msg_t first;
    zmq_msg_init(&first);
    if (zmq_msg_recv(&first, sockets_->reply_socket, ZMQ_DONTWAIT) != -1) {
        for (bool more = zmq_msg_more(&first) != 0; more;) {
            zmq_msg_t next;
            zmq_msg_init(&next);
            more = zmq_msg_recv(&next, sockets_->reply_socket, ZMQ_DONTWAIT) != -1 &&
                   zmq_msg_more(&next) != 0;
            zmq_msg_close(&next);
        }
        answer(static_cast<const unsigned char*>(zmq_msg_data(&first)), zmq_msg_size(&first));
    }
    zmq_msg_close(&first);
}

void monitor_server::answer(const unsigned char* frame, std::size_t size) {
    data_struct header{};
    std::memcpy(&header, frame, std::min<std::size_t>(size, frame_header_size));
    const unsigned char* payload = frame + frame_header_size;
    const bool well_formed = size >= frame_header_size && header.msg_len >= 0 &&
                             header.msg_len <= request_payload_max &&
                             static_cast<std::size_t>(header.msg_len) <= size - frame_header_size &&
                             header.crc == crc32(nullptr, header.msg_len, crc_32_MPEG2);
    reply answer;
    int result = -EBADMSG;
    if (well_formed) {
        try {
            result = dispatch(header, payload, answer);
        } catch (const std::bad_alloc&) {
            result = -ENOMEM;
        } catch (const std::exception&) {
            result = -EIO;
        }
    }
    send(header, result, answer);
}

int monitor_server::dispatch(const data_struct& header, const unsigned char* payload,
                             reply& answer) {
    const auto size = static_cast<std::size_t>(header.msg_len);
    if (header.command == client_id_command && header.sub_command == client_id_request::ask) {
        const std::uint8_t id = ids_.grant();
        if (id != 0)
            samplers_.client_gone(id); // nothing of an earlier holder may show through
        return answer.add_record(id) ? 0 : -EIO;
    }
    if (header.command == client_id_command && header.sub_command == client_id_request::give_back) {
        if (size < 1 || !ids_.give_back(payload[0]))
            return -EINVAL;
        samplers_.client_gone(payload[0]);
        return 0;
    }
    ids_.seen(header.client_id);
    const handler* found = samplers_.find(header.command, header.sub_command);
    return found == nullptr
               ? -ENOSYS
               : (*found)({header.sub_command, header.client_id, payload, size}, answer);
}

// An answer is whole packets of 8240 bytes, at least one. The first tells the length of all of the
// payload, so that a client sees from it whether others follow.
void monitor_server::send(const data_struct& header, int result, const reply& answer) {
    const std::size_t size = result < 0 ? 0 : answer.bytes.size();
    const std::size_t parts =
        std::max<std::size_t>(1, (size + answer_payload_max - 1) / answer_payload_max);
    alignas(data_struct) unsigned char packet[answer_frame_size];
    for (std::size_t i = 0; i < parts; ++i) {
        const std::size_t start = i * answer_payload_max;
        const std::size_t length = std::min<std::size_t>(size - start, answer_payload_max);
        data_struct head = header;
        head.msg_len = result < 0 ? result : static_cast<std::int32_t>(i == 0 ? size : length);
        head.sum_packet = static_cast<std::uint16_t>(parts);
        head.cur_packet = static_cast<std::uint16_t>(i);
        head.crc = crc32(packet + frame_header_size, answer_payload_max, crc_32_MPEG2);
        gettimeofday(&head.time, nullptr);
        std::memcpy(packet, &head, frame_header_size);
        if (length > 0)
            std::memcpy(packet + frame_header_size, answer.bytes.data() + start, length);
        std::memset(packet + frame_header_size + length, 0,
                    sizeof packet - frame_header_size - length);
        // A client that went away meanwhile needs no answer.
        zmq_send(sockets_->reply_socket, packet, sizeof packet,
                 ZMQ_DONTWAIT | (i + 1 < parts ? ZMQ_SNDMORE : 0));
    }
}

} // namespace monsrv
