// The server's socket loop and the frames it takes and sends.
#include "monitor_server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <zmq.h>

namespace monsrv {

namespace {
// Far above any request; a peer that sends more is cut off by the transport.
constexpr std::int64_t largest_message = 65536;
// Parts of a message with the peer's id and the delimiter; the frame is the third, and others are
// not looked at.
constexpr int parts_max = 16;
// Of a frame no more is looked at.
constexpr std::size_t frame_max = frame_header_size + request_payload_max;
// Messages that wait for the loop, of one client, before its connection is no longer read.
constexpr int received_max = 16;
// Requests of one client that wait for its slow one.
constexpr std::size_t waiting_max = 2;
// Answers that wait for one client to read them: the slow one, those after it, and one that ZeroMQ
// may still count when it is sent. Each may be 412,000 bytes.
constexpr int unread_max = 4;

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

bool is_well_formed(const data_struct& header, std::size_t frame_size) {
    return frame_size >= frame_header_size && header.msg_len >= 0 &&
           header.msg_len <= request_payload_max &&
           static_cast<std::size_t>(header.msg_len) <= frame_size - frame_header_size &&
           header.crc == crc32(nullptr, header.msg_len, crc_32_MPEG2);
}
} // namespace

struct monitor_server::sockets {
    sockets() {
        if (context == nullptr || router == nullptr || stop_event == -1) {
            const int error = errno;
            close_all();
            fail(error, "monsrv");
        }
        const int linger_ms = 0;
        const int tell_of_failures = 1; // instead of dropping an answer and saying nothing
        zmq_setsockopt(router, ZMQ_LINGER, &linger_ms, sizeof linger_ms);
        zmq_setsockopt(router, ZMQ_MAXMSGSIZE, &largest_message, sizeof largest_message);
        zmq_setsockopt(router, ZMQ_RCVHWM, &received_max, sizeof received_max);
        zmq_setsockopt(router, ZMQ_SNDHWM, &unread_max, sizeof unread_max);
        zmq_setsockopt(router, ZMQ_ROUTER_MANDATORY, &tell_of_failures, sizeof tell_of_failures);
    }
    ~sockets() { close_all(); }
    sockets(const sockets&) = delete;
    sockets& operator=(const sockets&) = delete;

    void* context = zmq_ctx_new();
    void* router = context != nullptr ? zmq_socket(context, ZMQ_ROUTER) : nullptr;
    int stop_event = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);

private:
    void close_all() {
        if (router != nullptr)
            zmq_close(router);
        if (context != nullptr)
            zmq_ctx_term(context);
        if (stop_event != -1)
            close(stop_event);
    }
};

monitor_server::monitor_server(const server_options& options)
    : machine_(std::make_shared<sampled_machine>(
          host(options.root, options.simulate_board ? std::optional<simulated_board>(options.seed)
                                                    : std::nullopt))),
      slow_(machine_), sockets_(std::make_unique<sockets>()) {}

monitor_server::~monitor_server() = default;

std::string endpoint_text(const std::string& address, const std::string& port) {
    const bool bare_ipv6 = address.find(':') != address.npos && address.front() != '[';
    return (bare_ipv6 ? "[" + address + "]" : address) + ":" + port;
}

int monitor_server::bind(const std::string& address, int port) {
    const int ipv6 = address == "*" || address.find(':') != address.npos;
    zmq_setsockopt(sockets_->router, ZMQ_IPV6, &ipv6, sizeof ipv6);
    const std::string endpoint =
        "tcp://" + endpoint_text(address, port == 0 ? "*" : std::to_string(port));
    if (zmq_bind(sockets_->router, endpoint.c_str()) == -1)
        fail(zmq_errno(), "cannot listen at " + endpoint_text(address, std::to_string(port)));
    char bound[256];
    std::size_t size = sizeof bound;
    if (zmq_getsockopt(sockets_->router, ZMQ_LAST_ENDPOINT, bound, &size) == -1)
        fail(zmq_errno(), "cannot tell the port");
    return std::stoi(std::strrchr(bound, ':') + 1);
}

void monitor_server::stop() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t n = write(sockets_->stop_event, &one, sizeof one);
}

server_counts monitor_server::counts() const {
    return {malformed_, dropped_requests_, dropped_answers_};
}

void monitor_server::call_every(std::chrono::milliseconds period, std::function<void()> call) {
    call_period_ = period;
    regular_call_ = std::move(call);
}

void monitor_server::call_if_due() {
    const auto now = std::chrono::steady_clock::now();
    if (!regular_call_ || now < next_call_)
        return;
    regular_call_();
    next_call_ = now + call_period_ / 2;
}

void monitor_server::run() {
    zmq_pollitem_t items[] = {{sockets_->router, 0, ZMQ_POLLIN, 0},
                              {nullptr, sockets_->stop_event, ZMQ_POLLIN, 0},
                              {nullptr, slow_.event(), ZMQ_POLLIN, 0}};
    for (;;) {
        call_if_due();
        if (zmq_poll(items, 3, call_period_.count()) == -1) {
            if (errno != EINTR)
                fail(zmq_errno(), "monsrv");
            continue;
        }
        if (items[1].revents != 0)
            break;
        if (items[2].revents != 0)
            send_slow_answers();
        if (items[0].revents == 0)
            continue;
        try {
            take_request();
        } catch (const std::bad_alloc&) {
            ++dropped_requests_;
        }
    }
    std::uint64_t count;
    [[maybe_unused]] const ssize_t n = read(sockets_->stop_event, &count, sizeof count);
}

// Receives one message with all its parts: the peer's id, which the socket puts in front, an empty
// delimiter and the frame. What has another form has no answer that its sender would understand.
void monitor_server::take_request() {
    std::string peer;
    std::string frame;
    bool delimited = false;
    int parts = 0;
    for (bool more = true; more; ++parts) {
        zmq_msg_t part;
        zmq_msg_init(&part);
        if (zmq_msg_recv(&part, sockets_->router, ZMQ_DONTWAIT) == -1) {
            zmq_msg_close(&part);
            return;
        }
        const auto* bytes = static_cast<const char*>(zmq_msg_data(&part));
        const std::size_t size = zmq_msg_size(&part);
        if (parts == 0)
            peer.assign(bytes, size);
        else if (parts == 1)
            delimited = size == 0;
        else if (parts == 2)
            frame.assign(bytes, std::min(size, frame_max));
        more = zmq_msg_more(&part) != 0;
        zmq_msg_close(&part);
    }
    if (!delimited || parts < 3 || parts > parts_max)
        ++malformed_;
    else
        take(peer, std::move(frame));
}

// A client's requests are answered in order: while a slow one is in progress, others wait.
void monitor_server::take(const std::string& peer, std::string frame) {
    const auto busy = busy_.find(peer);
    if (busy == busy_.end())
        answer(peer, std::move(frame));
    else if (busy->second.size() < waiting_max)
        busy->second.push_back(std::move(frame));
    else
        ++dropped_requests_;
}

void monitor_server::answer(const std::string& peer, std::string frame) {
    const data_struct header = header_of(frame);
    const auto* payload = reinterpret_cast<const unsigned char*>(frame.data()) + frame_header_size;
    reply answer;
    if (!is_well_formed(header, frame.size()))
        return send(peer, header, -EBADMSG, answer);
    if (header.command == client_id_command)
        return send(peer, header, answer_about_ids(header, payload, answer), answer);
    ids_.seen(header.client_id);
    const answering* found = machine_->samplers.find(header.command, header.sub_command);
    int result = -ENOSYS;
    if (found != nullptr && found->thread == loop_thread) {
        result = run_handler(found->answer,
                             {header.sub_command, header.client_id, payload,
                              static_cast<std::size_t>(header.msg_len)},
                             answer);
    } else if (found != nullptr) {
        result = slow_.add({found, peer, std::move(frame), 0, {}});
        if (result == 0) {
            busy_[peer];
            return;
        }
    }
    send(peer, header, result, answer);
}

int monitor_server::answer_about_ids(const data_struct& header, const unsigned char* payload,
                                     reply& answer) {
    if (header.sub_command == client_id_request::ask) {
        const std::uint8_t id = ids_.grant();
        if (id != 0)
            client_gone(id); // nothing of an earlier holder may show through
        return answer.add_record(id) ? 0 : -EIO;
    }
    if (header.sub_command == client_id_request::give_back) {
        if (header.msg_len < 1 || !ids_.give_back(payload[0]))
            return -EINVAL;
        client_gone(payload[0]);
        return 0;
    }
    return -ENOSYS;
}

void monitor_server::client_gone(std::uint8_t id) {
    machine_->samplers.client_gone(id, loop_thread);
    slow_.client_gone(id);
}

void monitor_server::send_slow_answers() {
    for (const slow_request& each : slow_.take_answered()) {
        send(each.peer, header_of(each.frame), each.result, each.answer);
        auto waiting = busy_.extract(each.peer);
        if (waiting.empty())
            continue;
        for (std::string& frame : waiting.mapped()) {
            try {
                take(each.peer, std::move(frame));
            } catch (const std::bad_alloc&) {
                ++dropped_requests_;
            }
        }
    }
}

// An answer is whole packets of 8240 bytes, at least one. The first tells the length of all of the
// payload, so that a client sees from it whether others follow.
void monitor_server::send(const std::string& peer, const data_struct& header, int result,
                          const reply& answer) {
    // A client that went away meanwhile needs no answer, and one that does not read gets none.
    if (zmq_send(sockets_->router, peer.data(), peer.size(), ZMQ_DONTWAIT | ZMQ_SNDMORE) == -1) {
        dropped_answers_ += zmq_errno() == EAGAIN ? 1 : 0;
        return;
    }
    zmq_send(sockets_->router, "", 0, ZMQ_DONTWAIT | ZMQ_SNDMORE);
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
        zmq_send(sockets_->router, packet, sizeof packet,
                 ZMQ_DONTWAIT | (i + 1 < parts ? ZMQ_SNDMORE : 0));
    }
}

} // namespace monsrv
