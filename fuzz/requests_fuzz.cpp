// What a client may send to the server, over real sockets. The server samples a tree
// of files, and a simulated board for what the tree lacks.
//
// The input is messages: a byte of flags (1: several parts, of which more follow; 2: without the
// empty part in front that a request has) and a piece. After each message a second one follows,
// which the server must answer whatever the first was.
#include "fuzz_support.h"
#include "monitor_server.h"

#include <cerrno>
#include <thread>
#include <zmq.h>

namespace {
constexpr int probe_command = 0x7A7A;
constexpr int longest_wait_ms = 5000;

class raw_client {
public:
    explicit raw_client(int port) {
        zmq_setsockopt(socket_, ZMQ_RCVTIMEO, &longest_wait_ms, sizeof longest_wait_ms);
        zmq_connect(socket_, ("tcp://127.0.0.1:" + std::to_string(port)).c_str());
    }

    void send(std::string_view part, bool more) {
        zmq_send(socket_, part.data(), part.size(), more ? ZMQ_SNDMORE : 0);
    }

    void probe() {
        data_struct header{};
        header.command = probe_command;
        header.sub_command = ++probes_;
        send({}, true);
        send({reinterpret_cast<const char*>(&header), frame_header_size}, false);
    }

    // Takes all answers up to that to the probe.
    void take_answers(bool refusals) {
        for (;;) {
            const data_struct header = take_answer();
            if (header.command == probe_command && header.sub_command == probes_)
                return;
            fuzz::expect(!refusals || header.msg_len == -EBADMSG, "a malformed request served");
        }
    }

private:
    data_struct take_answer() {
        data_struct header{};
        while (receive(header) != 0) { // the parts that stood before the request
        }
        int received = 0;
        do {
            fuzz::expect(receive(header) == answer_frame_size, "size of a packet");
            fuzz::expect(header.cur_packet == received++, "number of a packet");
            fuzz::expect(header.crc == 0, "checksum");
        } while (more());
        fuzz::expect(header.sum_packet == received, "number of packets");
        return header;
    }
    int receive(data_struct& header) {
        unsigned char packet[answer_frame_size] = {};
        const int n = fuzz::receive(socket_, packet, sizeof packet);
        fuzz::expect(n >= 0, "no answer");
        std::memcpy(&header, packet, frame_header_size);
        return n;
    }
    bool more() const {
        int more = 0;
        std::size_t size = sizeof more;
        zmq_getsockopt(socket_, ZMQ_RCVMORE, &more, &size);
        return more != 0;
    }

    void* socket_ = zmq_socket(zmq_ctx_new(), ZMQ_DEALER);
    int probes_ = 0;
};

int start_server() {
    monsrv::server_options options;
    options.root = SAMPLED_TREE;
    options.simulate_board = true;
    auto* server = new monsrv::monitor_server(options); // it runs until the process ends
    const int port = server->bind("127.0.0.1", 0);
    std::thread([server] { server->run(); }).detach();
    return port;
}

bool is_malformed(std::string_view frame) {
    data_struct header{};
    if (frame.size() < frame_header_size)
        return true;
    std::memcpy(&header, frame.data(), frame_header_size);
    const auto room = static_cast<std::ptrdiff_t>(frame.size() - frame_header_size);
    return header.msg_len < 0 || header.msg_len > std::min<std::ptrdiff_t>(room, 1024) ||
           header.crc != 0;
}

// Returns whether the server must refuse the message.
bool send_message(raw_client& client, fuzz::input& in) {
    bool refused = false;
    bool first = true;
    for (bool more = true; more; first = false) {
        const int flags = in.byte();
        const std::string_view part = in.piece();
        more = (flags & 1) != 0 && !in.empty();
        if (first && (flags & 2) == 0) {
            refused = is_malformed(part);
            client.send({}, true);
        }
        client.send(part, more);
    }
    return refused;
}
} // namespace

void fuzz_requests(const std::uint8_t* data, std::size_t size) {
    static raw_client client(start_server());
    fuzz::input in(data, size);
    for (int i = 0; i < fuzz::most_pieces && !in.empty(); ++i) {
        const bool refused = send_message(client, in);
        client.probe();
        client.take_answers(refused);
    }
}

static const fuzz::target registered("requests", fuzz_requests);
