// The server's socket loop and the frames it takes and sends.
#include "monitor_server.h"

#include "zmq_failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <sys/eventfd.h>
#include <unistd.h>
#include <zmq.h>

namespace monsrv {

namespace {
// Far above any request; a peer that sends more is cut off by the transport.
constexpr std::int64_t largest_message = 65536;
// Parts of a message with the peer's id and the delimiter; the frame is the third, and others are
// not looked at.
constexpr int parts_max = 16;
// Bytes of a frame beyond these are ignored.
constexpr std::size_t frame_max = frame_header_size + request_payload_max;
// Once so many messages of one client wait for the loop, its connection is no longer read.
constexpr int received_max = 16;
// Messages taken before the stop, slow answers and connections are looked at again.
constexpr int messages_at_once = 16;
// Requests of one client that wait for its slow one.
constexpr std::size_t waiting_max = 2;
// Answers that wait for one client to read them: the slow one, those after it, and one that ZeroMQ
// may still count when it is sent. Each may be 412,000 bytes.
constexpr int unread_max = 4;

// The kernel asks a silent peer's host after this many seconds, and gives it up after three more
// questions.
constexpr int keepalive_idle_s = 30;
constexpr int keepalive_interval_s = 10;
constexpr int keepalive_count = 3;
// A peer is cut off if its host has confirmed nothing of what was sent to it for this time.
constexpr int unconfirmed_max_ms = 60000;

bool is_well_formed(const data_struct& header, std::size_t frame_size) {
    return frame_size >= frame_header_size && header.msg_len >= 0 &&
           header.msg_len <= request_payload_max &&
           static_cast<std::size_t>(header.msg_len) <= frame_size - frame_header_size &&
           header.crc == crc32(nullptr, header.msg_len, crc_32_MPEG2);
}
} // namespace

struct monitor_server::sockets {
    explicit sockets(const server_options& options) {
        if (context == nullptr || router == nullptr || wake_event == -1) {
            const int error = errno;
            close_all();
            throw_zmq_error(error, "monsrv");
        }
        try {
            set_options(options);
        } catch (...) {
            close_all();
            throw;
        }
    }
    ~sockets() { close_all(); }
    sockets(const sockets&) = delete;
    sockets& operator=(const sockets&) = delete;

    void* context = zmq_ctx_new();
    void* router = context != nullptr ? zmq_socket(context, ZMQ_ROUTER) : nullptr;
    int wake_event = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    std::unique_ptr<listener> listening;
    std::unique_ptr<connections> peers;
    std::unique_ptr<curve_access> access;

private:
    void set(int option, int value) { zmq_setsockopt(router, option, &value, sizeof value); }
    void set_options(const server_options& options) {
        const int heartbeat_ms = static_cast<int>(options.heartbeat_period.count());
        zmq_setsockopt(router, ZMQ_MAXMSGSIZE, &largest_message, sizeof largest_message);
        set(ZMQ_LINGER, 0);
        set(ZMQ_RCVHWM, received_max);
        set(ZMQ_SNDHWM, unread_max);
        set(ZMQ_ROUTER_MANDATORY, 1); // otherwise answers are dropped without a word
        set(ZMQ_HANDSHAKE_IVL, static_cast<int>(options.handshake_time.count()));
        set(ZMQ_HEARTBEAT_IVL, heartbeat_ms);
        set(ZMQ_HEARTBEAT_TIMEOUT, 2 * heartbeat_ms);
        set(ZMQ_TCP_KEEPALIVE, 1);
        set(ZMQ_TCP_KEEPALIVE_IDLE, keepalive_idle_s);
        set(ZMQ_TCP_KEEPALIVE_INTVL, keepalive_interval_s);
        set(ZMQ_TCP_KEEPALIVE_CNT, keepalive_count);
        set(ZMQ_TCP_MAXRT, unconfirmed_max_ms);
        peers = std::make_unique<connections>(context, router, options.max_clients);
        if (!options.curve)
            return;
        access = std::make_unique<curve_access>(context, options.curve->allow_file);
        curve_access::secure(router, options.curve->keys);
    }
    // The handler of keys goes after everything that could ask it, and ends with the context.
    void close_all() {
        peers.reset();
        if (router != nullptr)
            zmq_close(router);
        if (context != nullptr)
            zmq_ctx_shutdown(context);
        access.reset();
        if (context != nullptr)
            zmq_ctx_term(context);
        if (wake_event != -1)
            close(wake_event);
    }
};

// A message as it was received. Its parts are the peer's id, which the socket puts in front, an
// empty delimiter and the frame.
struct monitor_server::message {
    std::string peer;
    std::string frame;
    std::string key; // of an encrypted client, which the handler of keys has let in
    int fd = -1;     // of its connection, if that is known
    bool delimited = false;
    bool lost = false; // for want of memory
    int parts = 0;

    bool is_request() const { return delimited && parts >= 3 && parts <= parts_max; }
    // Takes one part.
    // Returns whether there was one and another belongs to the message.
    bool receive_part(void* router) {
        zmq_msg_t part;
        zmq_msg_init(&part);
        if (zmq_msg_recv(&part, router, ZMQ_DONTWAIT) == -1) {
            zmq_msg_close(&part);
            return false;
        }
        try {
            take_part(part);
        } catch (const std::bad_alloc&) {
            lost = true; // the other parts are taken all the same
        }
        ++parts;
        const bool more = zmq_msg_more(&part) != 0;
        zmq_msg_close(&part);
        return more;
    }

private:
    void take_part(zmq_msg_t& part) {
        const auto* bytes = static_cast<const char*>(zmq_msg_data(&part));
        const std::size_t size = zmq_msg_size(&part);
        if (parts == 0) {
            peer.assign(bytes, size);
        } else if (parts == 1) {
            delimited = size == 0;
            fd = zmq_msg_get(&part, ZMQ_SRCFD);
            if (const char* user = zmq_msg_gets(&part, "User-Id"); user != nullptr)
                key = user;
        } else if (parts == 2) {
            frame.assign(bytes, std::min(size, frame_max));
        }
    }
};

monitor_server::monitor_server(const server_options& options)
    : machine_(std::make_shared<sampled_machine>(
          host(options.root, options.simulate_board ? std::optional<simulated_board>(options.seed)
                                                    : std::nullopt))),
      slow_(machine_), sockets_(std::make_unique<sockets>(options)) {}

monitor_server::~monitor_server() = default;

int monitor_server::bind(const listen_address& where, const std::string& text) {
    sockets_->listening = std::make_unique<listener>(where, text);
    sockets_->listening->hand_over(sockets_->router);
    return sockets_->listening->port();
}

int monitor_server::bind(const std::string& address, int port) {
    return bind(find_listen_address(address, port), endpoint_text(address, std::to_string(port)));
}

void monitor_server::wake() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t n = write(sockets_->wake_event, &one, sizeof one);
}

void monitor_server::stop() {
    stopping_ = true;
    wake();
}

void monitor_server::read_keys_again() {
    reading_keys_ = true;
    wake();
}

server_counts monitor_server::counts() const {
    const std::uint64_t refused_keys = sockets_->access ? sockets_->access->refused() : 0;
    return {requests_,
            refused_,
            slow_requests_,
            malformed_,
            dropped_requests_,
            dropped_answers_,
            refused_connections_ + refused_keys,
            connections_,
            held_ids_};
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
                              {nullptr, sockets_->wake_event, ZMQ_POLLIN, 0},
                              {nullptr, slow_.event(), ZMQ_POLLIN, 0},
                              {sockets_->peers->events(), 0, ZMQ_POLLIN, 0}};
    while (!stopping_) {
        call_if_due();
        if (zmq_poll(items, 4, poll_timeout()) == -1) {
            if (errno != EINTR)
                throw_zmq_error(zmq_errno(), "monsrv");
            continue;
        }
        if (items[1].revents != 0) {
            std::uint64_t count;
            [[maybe_unused]] const ssize_t n = read(sockets_->wake_event, &count, sizeof count);
        }
        if (reading_keys_.exchange(false))
            drop_refused_clients();
        look_after_connections();
        if (items[2].revents != 0)
            send_slow_answers();
        if (items[0].revents != 0)
            take_messages();
    }
    stopping_ = false;
}

// Returns the time until something is due that no event announces. It is rounded down to whole
// milliseconds, hence 1 ms more: poll must not return before the time has come.
int monitor_server::poll_timeout() const {
    using namespace std::chrono;
    auto due = std::min(sockets_->peers->due(), ids_.due());
    if (regular_call_)
        due = std::min(due, next_call_);
    if (due == steady_clock::time_point::max())
        return -1;
    const auto wait = duration_cast<milliseconds>(due - steady_clock::now()) + 1ms;
    return static_cast<int>(std::max(wait, 0ms).count());
}

void monitor_server::look_after_connections() {
    sockets_->peers->update(*sockets_->listening,
                            [this](const std::string& peer) { peer_gone(peer); });
    for (const std::uint8_t id : ids_.take_forgotten())
        forget(id);
    connections_ = sockets_->peers->open();
    refused_connections_ = sockets_->peers->refused();
    held_ids_ = ids_.held();
}

void monitor_server::peer_gone(const std::string& peer) {
    ids_.gone(peer);
    keys_.erase(peer);
    busy_.erase(peer);
    slow_.peer_gone(peer);
}

// Reads the list of keys again. Clients that are not in it any more may not connect, and lose the
// connection that they have.
void monitor_server::drop_refused_clients() {
    if (!sockets_->access || !sockets_->access->read_again())
        return;
    for (const auto& [peer, key] : keys_)
        if (!sockets_->access->allows(key.c_str()))
            sockets_->peers->cut_off(peer);
}

// Some messages after each other cost less than a poll for each. Asking the socket for its events
// in between lets ZeroMQ learn which answers clients have read.
void monitor_server::take_messages() {
    for (int i = 0; i < messages_at_once; ++i) {
        take_message();
        int events = 0;
        std::size_t size = sizeof events;
        if (zmq_getsockopt(sockets_->router, ZMQ_EVENTS, &events, &size) == -1 ||
            (events & ZMQ_POLLIN) == 0)
            return;
    }
}

// Receives one message with all its parts. A malformed message gets no answer, because its sender
// would not understand one.
void monitor_server::take_message() {
    message received;
    while (received.receive_part(sockets_->router)) {
    }
    if (received.parts == 0)
        return;
    if (!received.is_request() && !received.lost) {
        ++malformed_;
        return;
    }
    try {
        if (!received.lost && may_ask(received))
            take(received.peer, std::move(received.frame));
        else
            ++dropped_requests_;
    } catch (const std::bad_alloc&) {
        ++dropped_requests_;
    }
}

// Refuses the requests of a client that has gone: it gets no answer any more, and nobody would take
// back an id that it is granted now.
bool monitor_server::may_ask(const message& received) {
    if (!sockets_->peers->is_known(received.peer, received.fd)) // it may have only just come
        look_after_connections();
    const origin from = sockets_->peers->seen(received.peer, received.fd,
                                              [this](const std::string& peer) { peer_gone(peer); });
    if (from == origin::gone)
        return false;
    if (!sockets_->access)
        return true;
    if (!sockets_->access->allows(received.key.c_str()))
        return false;
    if (from == origin::open)
        keys_.try_emplace(received.peer, received.key);
    return true;
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
    ++requests_;
    if (!is_well_formed(header, frame.size()))
        return send(peer, header, -EBADMSG, answer);
    if (header.command == client_id_command)
        return send(peer, header, answer_about_ids(peer, header, payload, answer), answer);
    ids_.seen(header.client_id, peer);
    if (header.command == server_command && header.sub_command == server_request::counts) {
        look_after_connections();
        const std::string text = text_of(counts());
        answer.add(text.data(), text.size());
        return send(peer, header, 0, answer);
    }
    const answering* found = machine_->samplers.find(header.command, header.sub_command);
    int result = -ENOSYS;
    if (found != nullptr && found->thread == loop_thread) {
        result = run_in_loop(peer, *found, header, payload, answer);
    } else if (found != nullptr) {
        result = slow_.add({found, peer, std::move(frame), 0, {}});
        if (result == 0) {
            ++slow_requests_;
            busy_[peer];
            return;
        }
    }
    send(peer, header, result, answer);
}

// Counting is switched on and off for a client's id, which is a hint and no proof of who asks.
int monitor_server::run_in_loop(const std::string& peer, const answering& found,
                                const data_struct& header, const unsigned char* payload,
                                reply& answer) {
    const bool on = header.sub_command == cpu_request::enable_counters;
    const bool switches = header.command == cpu_command &&
                          (on || header.sub_command == cpu_request::disable_counters);
    if (switches && !ids_.may_switch_counting(header.client_id, peer))
        return -EACCES;
    const int result = run_handler(
        found.answer,
        {header.sub_command, header.client_id, payload, static_cast<std::size_t>(header.msg_len)},
        answer);
    if (switches && result == 0)
        ids_.counting_switched(header.client_id, peer, on);
    return result;
}

int monitor_server::answer_about_ids(const std::string& peer, const data_struct& header,
                                     const unsigned char* payload, reply& answer) {
    if (header.sub_command == client_id_request::ask) {
        const std::uint8_t held_before = ids_.held_by(peer);
        const std::uint8_t id = ids_.grant(peer);
        if (id != 0 && id != held_before)
            forget(id); // nothing of an earlier holder may show through
        return answer.add_record(id) ? 0 : -EIO;
    }
    if (header.sub_command != client_id_request::give_back)
        return -ENOSYS;
    if (header.msg_len < 1)
        return -EINVAL;
    const int result = ids_.give_back(payload[0], peer);
    if (result == 0)
        forget(payload[0]);
    return result;
}

// Forgets what is kept under an id. All clients without an id share the samples under 0, so for 0
// only counting ends.
void monitor_server::forget(std::uint8_t id) {
    if (id != 0) {
        machine_->samplers.client_gone(id, loop_thread);
        slow_.client_gone(id);
        return;
    }
    reply unused;
    const answering* off = machine_->samplers.find(cpu_command, cpu_request::disable_counters);
    if (off != nullptr)
        run_handler(off->answer, {cpu_request::disable_counters, id, nullptr, 0}, unused);
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

// An answer is whole packets of 8240 bytes, at least one. The first one holds the length of the
// whole payload, so that a client knows whether others follow.
void monitor_server::send(const std::string& peer, const data_struct& header, int result,
                          const reply& answer) {
    refused_ += result < 0 ? 1 : 0;
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
