// Whole queries without a report, against raw ZeroMQ ping-pong of the same bytes.
//
// Both run against the same echo thread: 52 bytes out, packets of 8240 bytes back. So does a query
// over an encrypted connection.
#include "cpu_stat_manager.h"
#include "texts.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <fstream>
#include <iostream>
#include <pthread.h>
#include <sched.h>
#include <thread>
#include <zmq.h>

extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

namespace {
// Without pinning, the scheduler changes between two placements of both ends, and the times change
// with them.
void pin_to(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}

std::vector<std::string> packets(int sub_command, const std::string& text) {
    std::vector<std::string> all;
    for (std::size_t at = 0; at < text.size(); at += answer_payload_max) {
        data_struct header{};
        header.sub_command = sub_command;
        header.msg_len =
            static_cast<int>(std::min<std::size_t>(text.size() - at, answer_payload_max));
        std::string packet(reinterpret_cast<char*>(&header), frame_header_size);
        packet += text.substr(at, answer_payload_max);
        packet.resize(answer_frame_size);
        all.push_back(packet);
    }
    return all;
}

// A pair of keys, 40 characters of Z85 each.
struct key_pair {
    key_pair() { zmq_curve_keypair(open, secret); }
    char open[41];
    char secret[41];
};

// Answers every request with the same packets until it receives a single byte.
class echo_server {
public:
    /// @param keys of an encrypted server; null for a plain one
    explicit echo_server(std::vector<std::string> answer, const key_pair* keys = nullptr)
        : keys_(keys), answer_(std::move(answer)), context_(zmq_ctx_new()),
          socket_(zmq_socket(context_, ZMQ_REP)) {
        const int on = 1;
        if (keys != nullptr) {
            zmq_setsockopt(socket_, ZMQ_CURVE_SERVER, &on, sizeof on);
            zmq_setsockopt(socket_, ZMQ_CURVE_SECRETKEY, keys->secret, sizeof keys->secret);
        }
        zmq_bind(socket_, "tcp://127.0.0.1:*");
        char bound[64];
        std::size_t size = sizeof bound;
        zmq_getsockopt(socket_, ZMQ_LAST_ENDPOINT, bound, &size);
        endpoint = bound;
        thread_ = std::thread([this] { serve(); });
    }
    ~echo_server() {
        void* context = zmq_ctx_new();
        void* socket = zmq_socket(context, ZMQ_REQ);
        if (keys_ != nullptr) {
            zmq_setsockopt(socket, ZMQ_CURVE_PUBLICKEY, keys_->open, sizeof keys_->open);
            zmq_setsockopt(socket, ZMQ_CURVE_SECRETKEY, keys_->secret, sizeof keys_->secret);
            zmq_setsockopt(socket, ZMQ_CURVE_SERVERKEY, keys_->open, sizeof keys_->open);
        }
        zmq_connect(socket, endpoint.c_str());
        char byte = 0;
        zmq_send(socket, &byte, 1, 0);
        zmq_recv(socket, &byte, 1, 0);
        thread_.join();
        zmq_close(socket);
        zmq_ctx_term(context);
        zmq_close(socket_);
        zmq_ctx_term(context_);
    }
    int port() const { return std::stoi(endpoint.substr(endpoint.rfind(':') + 1)); }

    std::string endpoint;

private:
    void serve() {
        pin_to(1);
        char request[2048];
        while (zmq_recv(socket_, request, sizeof request, 0) != 1)
            for (std::size_t i = 0; i < answer_.size(); ++i)
                zmq_send(socket_, answer_[i].data(), answer_[i].size(),
                         i + 1 < answer_.size() ? ZMQ_SNDMORE : 0);
        zmq_send(socket_, "", 0, 0);
    }

    const key_pair* keys_;
    std::vector<std::string> answer_;
    void* context_;
    void* socket_;
    std::thread thread_;
};

// The least that a query does: send, poll, receive all parts.
void raw_trip(benchmark::State& state, const std::vector<std::string>& answer) {
    echo_server server(answer);
    void* context = zmq_ctx_new();
    void* socket = zmq_socket(context, ZMQ_REQ);
    zmq_connect(socket, server.endpoint.c_str());
    pin_to(0);
    char request[52] = {};
    static char packet[answer_frame_size];
    for (auto _ : state) {
        zmq_send(socket, request, sizeof request, 0);
        zmq_pollitem_t item{socket, 0, ZMQ_POLLIN, 0};
        zmq_poll(&item, 1, 1000);
        for (int more = 1; more != 0;) {
            zmq_recv(socket, packet, sizeof packet, 0);
            std::size_t size = sizeof more;
            if (answer.size() > 1)
                zmq_getsockopt(socket, ZMQ_RCVMORE, &more, &size);
            else
                more = 0;
        }
    }
    zmq_close(socket);
    zmq_ctx_term(context);
}

template<class Query>
void library_query(benchmark::State& state, const std::vector<std::string>& answer, Query query,
                   const key_pair* keys = nullptr) {
    client_comm::client_id = 1; // the echo grants none
    echo_server server(answer, keys);
    auto connection = std::make_shared<client_comm>("127.0.0.1", server.port());
    if (keys != nullptr)
        connection->encrypt(key_pair().secret, keys->open);
    connection->stop_at_last_part(true);
    {
        cpu_stat_manager manager(connection);
        pin_to(0);
        for (auto _ : state)
            if (query(manager) != 0)
                state.SkipWithError("query failed");
    }
    client_comm::client_id = 0;
    connection->close_connect();
}

// Standard output that costs nothing, for the table the interrupt decoder prints.
class discard : public std::streambuf {
    int overflow(int c) override { return c; }
    std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};

void cpu_query_raw(benchmark::State& state) {
    raw_trip(state, packets(1, cpu_table(9)));
}
void cpu_query_ours(benchmark::State& state) {
    library_query(state, packets(1, cpu_table(9)),
                  [](cpu_stat_manager& manager) { return manager.get_cpu_usage(nullptr); });
}
void cpu_query_encrypted(benchmark::State& state) {
    const key_pair keys;
    library_query(
        state, packets(1, cpu_table(9)),
        [](cpu_stat_manager& manager) { return manager.get_cpu_usage(nullptr); }, &keys);
}
// A table of the size of the output benchmarks' samples.
void cpu_query_100(benchmark::State& state) {
    library_query(state, packets(1, cpu_table(101)),
                  [](cpu_stat_manager& manager) { return manager.get_cpu_usage(nullptr); });
}
void interrupt_query_raw(benchmark::State& state) {
    raw_trip(state, packets(9, interrupt_table(64, 300)));
}
void interrupt_query(benchmark::State& state, const key_pair* keys) {
    discard nowhere;
    std::streambuf* before = std::cout.rdbuf(&nowhere);
    library_query(
        state, packets(9, interrupt_table(64, 300)),
        [](cpu_stat_manager& manager) { return manager.get_interrupt(nullptr); }, keys);
    std::cout.rdbuf(before);
}
void interrupt_query_ours(benchmark::State& state) {
    interrupt_query(state, nullptr);
}
void interrupt_query_encrypted(benchmark::State& state) {
    const key_pair keys;
    interrupt_query(state, &keys);
}
BENCHMARK(cpu_query_raw)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(cpu_query_ours)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(cpu_query_encrypted)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(cpu_query_100)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(interrupt_query_raw)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(interrupt_query_ours)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(interrupt_query_encrypted)->UseRealTime()->Unit(benchmark::kMicrosecond);
} // namespace

BENCHMARK_MAIN();
