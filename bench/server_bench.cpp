// How long an honest client waits for the server beside others.
//
// Usage: moncl_server_bench PORT MODE CLIENTS SECONDS [PAUSE_MS]
//
// One client asks for CPU usage every 2 ms and measures each answer. At the same time CLIENTS
// others ask as fast as they get answers, or PAUSE_MS after each, for what MODE says: cpu, top
// (busiest processes), thermal (zone 0), irq, or bare (peers that send a message without a
// delimiter and go away). Prints milliseconds of the SECONDS after the first three pauses and a
// second, in which all connect.
#include "common_func.h"
#include "mon_cpu.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>
#include <zmq.h>

namespace {
using clock_type = std::chrono::steady_clock;

struct asked_for {
    const char* mode;
    int command;
    int sub_command;
};
constexpr asked_for modes[] = {
    {"cpu", cpu_command, cpu_request::usage},
    {"top", cpu_command, cpu_request::busiest_processes},
    {"thermal", peripheral_command, peripheral_request::thermal},
    {"irq", cpu_command, cpu_request::interrupts},
    {"bare", cpu_command, cpu_request::usage},
};

// The waiting times of one client.
struct waits {
    std::vector<double> ms; // of each answer
    long unanswered = 0;
};

std::string frame_of(const asked_for& what, int id) {
    data_struct header{};
    header.command = what.command;
    header.sub_command = what.sub_command;
    header.msg_len = 4;
    header.client_id = static_cast<std::uint8_t>(id);
    std::string frame(reinterpret_cast<const char*>(&header), frame_header_size);
    frame.resize(sizeof header + 4);
    return frame;
}

void* connect_to(void* context, int type, const std::string& endpoint) {
    void* socket = zmq_socket(context, type);
    const int patience_ms = 5000;
    const int linger_ms = 0;
    zmq_setsockopt(socket, ZMQ_RCVTIMEO, &patience_ms, sizeof patience_ms);
    zmq_setsockopt(socket, ZMQ_LINGER, &linger_ms, sizeof linger_ms);
    zmq_connect(socket, endpoint.c_str());
    return socket;
}

// Takes all parts of an answer; false after 5 s without one.
bool receive(void* socket) {
    static thread_local char packet[answer_frame_size];
    for (int more = 1; more != 0;) {
        if (zmq_recv(socket, packet, sizeof packet, 0) == -1)
            return false;
        std::size_t size = sizeof more;
        zmq_getsockopt(socket, ZMQ_RCVMORE, &more, &size);
    }
    return true;
}

// Asks until @p stop, with @p pause between an answer and the next request.
waits ask(void* context, const std::string& endpoint, const std::string& frame,
          std::chrono::microseconds pause, const std::atomic<bool>& measuring,
          const std::atomic<bool>& stop) {
    void* socket = connect_to(context, ZMQ_REQ, endpoint);
    waits seen;
    while (!stop) {
        const auto start = clock_type::now();
        zmq_send(socket, frame.data(), frame.size(), 0);
        const bool measured = measuring;
        if (receive(socket)) {
            if (measured)
                seen.ms.push_back(
                    std::chrono::duration<double, std::milli>(clock_type::now() - start).count());
        } else { // a REQ socket takes no other request now
            ++seen.unanswered;
            zmq_close(socket);
            socket = connect_to(context, ZMQ_REQ, endpoint);
        }
        if (pause.count() > 0)
            std::this_thread::sleep_for(pause);
    }
    zmq_close(socket);
    return seen;
}

// Peers that send one message without a delimiter and go away, one after the other.
void send_bare(void* context, const std::string& endpoint, const std::string& frame,
               const std::atomic<bool>& stop) {
    const int linger_ms = 100;
    for (; !stop; std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
        void* socket = connect_to(context, ZMQ_DEALER, endpoint);
        zmq_setsockopt(socket, ZMQ_LINGER, &linger_ms, sizeof linger_ms);
        zmq_send(socket, frame.data(), frame.size(), ZMQ_DONTWAIT);
        zmq_close(socket);
    }
}

void print(const char* who, waits& seen) {
    std::sort(seen.ms.begin(), seen.ms.end());
    const auto at = [&seen](double part) {
        return seen.ms.empty() ? -1
                               : seen.ms[static_cast<std::size_t>(
                                     part * static_cast<double>(seen.ms.size() - 1))];
    };
    std::printf("%-8s answers %8zu  unanswered %4ld  p50 %8.3f  p99 %8.3f  max %8.3f\n", who,
                seen.ms.size(), seen.unanswered, at(0.5), at(0.99), at(1));
}
} // namespace

int main(int argc, char** argv) {
    const auto* what =
        argc != 5 && argc != 6
            ? std::end(modes)
            : std::find_if(std::begin(modes), std::end(modes), [argv](const asked_for& each) {
                  return std::strcmp(each.mode, argv[2]) == 0;
              });
    if (what == std::end(modes)) {
        std::fprintf(stderr, "usage: %s PORT cpu|top|thermal|irq|bare CLIENTS SECONDS [PAUSE_MS]\n",
                     argv[0]);
        return 2;
    }
    const std::string endpoint = "tcp://127.0.0.1:" + std::string(argv[1]);
    const int clients = std::clamp(std::atoi(argv[3]), 0, 1000);
    const int seconds = std::clamp(std::atoi(argv[4]), 1, 600);
    const std::chrono::milliseconds pause(argc == 6 ? std::clamp(std::atoi(argv[5]), 0, 10000) : 0);
    void* context = zmq_ctx_new();
    zmq_ctx_set(context, ZMQ_MAX_SOCKETS, 2100);
    std::atomic<bool> measuring{false};
    std::atomic<bool> stop{false};
    std::vector<waits> seen(static_cast<std::size_t>(clients) + 1);
    std::vector<std::thread> threads;
    for (int i = 1; i <= clients; ++i)
        threads.emplace_back([&, i] {
            const std::string frame = frame_of(*what, 1 + i % 255);
            if (std::strcmp(what->mode, "bare") == 0)
                send_bare(context, endpoint, frame, stop);
            else
                seen[static_cast<std::size_t>(i)] =
                    ask(context, endpoint, frame, pause, measuring, stop);
        });
    threads.emplace_back([&] {
        seen[0] = ask(context, endpoint, frame_of(modes[0], 1), std::chrono::milliseconds(2),
                      measuring, stop);
    });
    std::this_thread::sleep_for(std::chrono::seconds(1) + 3 * pause);
    measuring = true;
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    stop = true;
    for (std::thread& each : threads)
        each.join();
    zmq_ctx_term(context);
    waits others;
    for (std::size_t i = 1; i < seen.size(); ++i) {
        others.ms.insert(others.ms.end(), seen[i].ms.begin(), seen[i].ms.end());
        others.unanswered += seen[i].unanswered;
    }
    print("honest", seen[0]);
    if (!others.ms.empty())
        print("others", others);
    return 0;
}
