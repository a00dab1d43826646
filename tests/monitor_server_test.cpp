// The server as seen from the wire: ids, refusals, packets; and the samplers of the first subjects.
#include "client_comm.h"
#include "client_ids.h"
#include "cpu_stat_manager.h"
#include "sampler.h"
#include "sys_info_manager.h"

#include "child_process.h"
#include "running_server.h"
#include "scripted_server.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <zmq.h>

namespace {
// Sends bytes as they are and returns the first packet of the answer.
class raw_client {
public:
    explicit raw_client(int port, int patience_ms = 10000)
        : context_(zmq_ctx_new()), socket_(zmq_socket(context_, ZMQ_REQ)) {
        const int linger_ms = 0;
        zmq_setsockopt(socket_, ZMQ_RCVTIMEO, &patience_ms, sizeof patience_ms);
        zmq_setsockopt(socket_, ZMQ_LINGER, &linger_ms, sizeof linger_ms);
        zmq_connect(socket_, ("tcp://127.0.0.1:" + std::to_string(port)).c_str());
    }
    ~raw_client() {
        zmq_close(socket_);
        zmq_ctx_term(context_);
    }
    std::string ask(const std::vector<std::string>& parts) {
        for (std::size_t i = 0; i < parts.size(); ++i)
            zmq_send(socket_, parts[i].data(), parts[i].size(),
                     i + 1 < parts.size() ? ZMQ_SNDMORE : 0);
        char answer[9000];
        const int n = zmq_recv(socket_, answer, sizeof answer, 0);
        return {answer, static_cast<std::size_t>(std::max(n, 0))};
    }

private:
    void* context_;
    void* socket_;
};

std::string request_frame(int command, int sub_command, int msg_len, std::size_t size = 52,
                          unsigned crc = 0, unsigned char client_id = 0) {
    data_struct header{};
    header.command = command;
    header.sub_command = sub_command;
    header.msg_len = msg_len;
    header.crc = crc;
    header.client_id = client_id;
    std::string bytes(reinterpret_cast<const char*>(&header), frame_header_size);
    bytes.resize(size);
    return bytes;
}
} // namespace

TEST(monitor_server, refuses_what_it_does_not_understand_and_goes_on) {
    running_server server;
    raw_client client(server.port());
    const struct {
        const char* name;
        std::vector<std::string> request;
        int result; // of msg_len; 1: any length above 0
    } cases[] = {
        {"unknown command", {request_frame(1, 1, 4)}, -ENOSYS},
        {"unknown sub-command", {request_frame(0xAE02, 999, 4)}, -ENOSYS},
        {"unknown handshake", {request_frame(0xEAEA, 3, 4)}, -ENOSYS},
        {"giving back what is not held", {request_frame(0xEAEA, 2, 1)}, -EINVAL},
        {"giving back nothing", {request_frame(0xEAEA, 2, 0)}, -EINVAL},
        {"an empty message", {""}, -EBADMSG},
        {"shorter than a header", {request_frame(0xAE02, 1, 0, 43)}, -EBADMSG},
        {"more announced than there", {request_frame(0xAE02, 1, 9, 52)}, -EBADMSG},
        {"more announced than allowed", {request_frame(0xAE02, 1, 1025, 2000)}, -EBADMSG},
        {"a negative length", {request_frame(0xAE02, 1, -1)}, -EBADMSG},
        {"a checksum", {request_frame(0xAE02, 1, 4, 52, 7)}, -EBADMSG},
        {"several parts", {request_frame(0xAE02, 1, 4), "second", "third"}, 1},
        {"no trailing bytes", {request_frame(0xAE02, 1, 0, 44)}, 1},
        {"a good one", {request_frame(0xAE02, 1, 4)}, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string answer = client.ask(c.request);
        ASSERT_EQ(answer.size(), 8240U);
        const data_struct header = header_of(answer);
        EXPECT_EQ(c.result == 1 ? header.msg_len > 0 : header.msg_len == c.result, true)
            << header.msg_len;
        EXPECT_EQ(header.crc, 0U);
    }
    // An oversized message costs its sender the connection, nobody else's.
    raw_client flood(server.port(), 300);
    std::thread sender([&] { flood.ask({std::string(70000, 'x')}); });
    EXPECT_EQ(client.ask({request_frame(0xAE01, 10, 4)}).size(), 8240U);
    std::mt19937 random(5);
    for (int i = 0; i < 2000; ++i) {
        std::string noise(random() % 120, '\0');
        for (char& c : noise)
            c = static_cast<char>(random());
        if (noise.size() > 8 && i % 2 == 0)
            noise.replace(0, 2, "\x02\xAE");
        ASSERT_EQ(client.ask({noise}).size(), 8240U);
    }
    sender.join();
}

TEST(monitor_server, grants_ids_until_none_is_left) {
    running_server server;
    raw_client client(server.port());
    const std::string ask = request_frame(0xEAEA, 1, 4);
    for (int id = 1; id <= 255; ++id)
        ASSERT_EQ(static_cast<unsigned char>(client.ask({ask})[44]), id);
    EXPECT_EQ(client.ask({ask})[44], 0);
    std::string give_back = request_frame(0xEAEA, 2, 1);
    give_back[44] = 77;
    EXPECT_EQ(header_of(client.ask({give_back})).msg_len, 0);
    EXPECT_EQ(header_of(client.ask({give_back})).msg_len, -EINVAL);
    EXPECT_EQ(client.ask({ask})[44], 77);
}

TEST(client_ids, keep_ids_of_before_a_restart_and_reclaim_abandoned_ones_last) {
    monsrv::client_ids ids;
    const auto start = monsrv::client_ids::clock::now();
    ids.seen(1, start);
    EXPECT_EQ(ids.grant(start), 2);
    for (int i = 3; i <= 255; ++i)
        ids.grant(start + std::chrono::minutes(30));
    EXPECT_EQ(ids.held(), 255);
    EXPECT_EQ(ids.grant(start + std::chrono::minutes(59)), 0);
    ids.seen(1, start + std::chrono::minutes(60));
    EXPECT_EQ(ids.grant(start + std::chrono::minutes(61)), 2);
    EXPECT_TRUE(ids.give_back(200));
    EXPECT_FALSE(ids.give_back(200));
    EXPECT_FALSE(ids.give_back(0));
    EXPECT_EQ(ids.grant(start + std::chrono::hours(5)), 200);
}

TEST(reply, holds_one_packet_unless_parts_are_allowed) {
    monsrv::reply one;
    EXPECT_FALSE(one.add_lines(std::string(8189, 'a') + "\nb\nc\n"));
    EXPECT_EQ(one.bytes.size(), 8190U) << "whole lines, and room for the NUL";
    EXPECT_FALSE(one.add_record(std::uint64_t{1}));
    EXPECT_FALSE(one.add("12345", 5));
    EXPECT_EQ(one.room(), 0U);
    EXPECT_FALSE(one.add_lines("x\n"));
    monsrv::reply many;
    many.allow_parts();
    EXPECT_TRUE(many.add_lines(std::string(409599, 'a')));
    EXPECT_EQ(many.room(), 1U);
}

TEST(samplers, answer_from_a_tree_of_another_machine) {
    file_tree tree;
    tree.write("/proc/stat",
               "cpu  10 20 30 40 50 60 70 80 90 100\ncpu0 1 2 3\ncpu7 4\nintr 5 6\ncpu8 x\n");
    tree.write("/proc/sys/kernel/osrelease", "6.1.0-board\n");
    tree.write("/proc/cpuinfo",
               "processor\t: 0\ncpu MHz\t\t: 1000.5\n\nprocessor\t: 2\ncpu MHz\t\t: 2400\n");
    tree.write("/sys/devices/system/cpu/cpu0/cpufreq/scaling_cur_freq", "1500000\n");
    running_server server(tree.root());
    const struct {
        const char* possible;
        int count;
    } lists[] = {{"0-7\n", 8}, {"0\n", 1}, {"0-3,8-11\n", 8}, {"0-63\n", 64}, {"0,2,4\n", 3}};
    sysinfo_manager system("127.0.0.1", server.port());
    for (const auto& list : lists) {
        tree.write("/sys/devices/system/cpu/possible", list.possible);
        EXPECT_EQ(system.get_cpu_possible(nullptr), list.count) << list.possible;
    }
    tree.write("/sys/devices/system/cpu/possible", "x\n");
    EXPECT_EQ(system.get_cpu_possible(nullptr), -EIO);
    EXPECT_EQ(system.get_version(), 0);
    EXPECT_EQ(system.last_version(), "6.1.0-board");
    EXPECT_EQ(system.get_cpu0_freq(), 0);
    EXPECT_EQ(system.last_cpu_freq(), 1500000U);
    EXPECT_EQ(system.get_cpu2_freq(), 0);
    EXPECT_EQ(system.last_cpu_freq(), 2400000U);
    EXPECT_EQ(system.get_cpu1_freq(), -ENOENT);

    cpu_stat_manager cpus(server.connect());
    EXPECT_EQ(cpus.get_cpu_usage(nullptr), 0);
    EXPECT_EQ(cpus.cpus_num, 3);
    EXPECT_EQ(cpus.cpu_parser->last_stats->at(0)->guest_nice, 100U);
    std::string many;
    for (int i = 0; i < 500; ++i)
        many += "cpu" + std::to_string(i) + " 1 2 3 4 5 6 7 8 9 10\n";
    tree.write("/proc/stat", many);
    EXPECT_EQ(cpus.get_cpu_usage(nullptr), 0);
    EXPECT_GT(cpus.cpus_num, 250) << "as many whole lines as fit";
    EXPECT_EQ(cpus.cpu_parser->last_stats->back()->guest_nice, 10U);
    close_at_once(*system.client);
    close_at_once(*cpus.client);
}

TEST(samplers, agree_with_this_kernel) {
    running_server server;
    cpu_stat_manager cpus(server.connect());
    ASSERT_EQ(cpus.get_cpu_usage(nullptr), 0);
    std::ifstream table("/proc/stat");
    std::string name;
    std::uint64_t user = 0;
    table >> name >> user;
    const std::uint64_t sampled = cpus.cpu_parser->last_stats->at(0)->user;
    EXPECT_LE(sampled, user);
    EXPECT_GE(sampled + 100 * std::thread::hardware_concurrency(), user);
    sysinfo_manager system("127.0.0.1", server.port());
    EXPECT_GE(system.get_cpu_possible(nullptr),
              static_cast<int>(std::thread::hardware_concurrency()));
    close_at_once(*system.client);
    close_at_once(*cpus.client);
}
