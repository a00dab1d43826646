// The server as seen from the wire: ids, refusals, packets; and the samplers of the first subjects.
#include "client_ids.h"
#include "cpu_stat_manager.h"
#include "sys_info_manager.h"

#include "child_process.h"
#include "manager_support.h"
#include "running_server.h"
#include "sampler_asker.h"

namespace {
// Sends bytes as they are and returns the first packet of the answer.
class raw_client {
public:
    explicit raw_client(int port) {
        const int times_ms[] = {0, 10000};
        zmq_setsockopt(socket_, ZMQ_LINGER, times_ms, sizeof(int));
        zmq_setsockopt(socket_, ZMQ_RCVTIMEO, times_ms + 1, sizeof(int));
        zmq_connect(socket_, ("tcp://127.0.0.1:" + std::to_string(port)).c_str());
    }
    ~raw_client() {
        zmq_close(socket_);
        zmq_ctx_term(context_);
    }
    void send(const std::string& part, int flags = 0) {
        zmq_send(socket_, part.data(), part.size(), flags);
    }
    std::string ask(const std::string& request) {
        send(request);
        char answer[9000];
        return {answer, static_cast<std::size_t>(std::max(zmq_recv(socket_, answer, 9000, 0), 0))};
    }

private:
    void* context_ = zmq_ctx_new();
    void* socket_ = zmq_socket(context_, ZMQ_REQ);
};
} // namespace

TEST(monitor_server, refuses_what_it_does_not_understand_and_goes_on) {
    running_server server;
    raw_client client(server.port());
    auto with = [](int command, int sub, int msg_len, std::size_t size = 52) {
        const std::string frame = native(command) + native(sub) + native(msg_len);
        return field(frame, size);
    };
    const std::pair<std::string, int> cases[] = {
        {with(1, 1, 4), -ENOSYS},
        {with(0xAE02, 999, 4), -ENOSYS},
        {with(0xEAEA, 3, 4), -ENOSYS},
        {with(0xEAEA, 2, 1), -EINVAL}, // gives back what is not held
        {with(0xEAEA, 2, 0), -EINVAL},
        {"", -EBADMSG},
        {with(0xAE02, 1, 0, 43), -EBADMSG},
        {with(0xAE02, 1, 9, 52), -EBADMSG},
        {with(0xAE02, 1, 1025, 2000), -EBADMSG},
        {with(0xAE02, 1, -1), -EBADMSG},
        {with(0xAE02, 1, 4).replace(40, 1, "\7"), -EBADMSG},
        {with(0xAE02, 1, 0, 44), 1},
        {with(0xAE02, 1, 4), 1},
    };
    // An oversized message costs its sender the connection, nobody else's.
    raw_client flood(server.port());
    flood.send(std::string(70000, 'x'));
    client.send(with(0xAE02, 1, 4), ZMQ_SNDMORE); // the first part of two counts
    for (const auto& [request, result] : cases) {
        const std::string answer = client.ask(request);
        ASSERT_EQ(answer.size(), 8240U);
        EXPECT_EQ(std::min(header_of(answer).msg_len, 1), request.empty() ? 1 : result);
        EXPECT_EQ(header_of(answer).crc, 0U);
    }
}

TEST(monitor_server, grants_ids_until_none_is_left) {
    running_server server;
    raw_client client(server.port());
    client_comm::client_id = 0;
    const std::string ask = request_bytes(0xEAEA, 1, "");
    for (int id = 1; id <= 255; ++id)
        ASSERT_EQ(static_cast<unsigned char>(client.ask(ask)[44]), id);
    EXPECT_EQ(client.ask(ask)[44], 0);
    const std::string give_back = request_bytes(0xEAEA, 2, "M");
    EXPECT_EQ(header_of(client.ask(give_back)).msg_len, 0);
    EXPECT_EQ(header_of(client.ask(give_back)).msg_len, -EINVAL);
    EXPECT_EQ(client.ask(ask)[44], 'M');
}

TEST(client_ids, keep_ids_of_before_a_restart_and_reclaim_abandoned_ones_last) {
    monsrv::client_ids ids;
    const auto start = monsrv::client_ids::clock::now();
    using std::chrono::minutes;
    ids.seen(1, start);
    EXPECT_EQ(ids.grant(start), 2);
    for (int i = 3; i <= 255; ++i)
        ids.grant(start + minutes(30));
    EXPECT_EQ(ids.held(), 255);
    EXPECT_EQ(ids.grant(start + minutes(59)), 0);
    ids.seen(1, start + minutes(60));
    EXPECT_EQ(ids.grant(start + minutes(61)), 2);
    EXPECT_TRUE(ids.give_back(200));
    EXPECT_FALSE(ids.give_back(200) || ids.give_back(0));
    EXPECT_EQ(ids.grant(start + minutes(300)), 200);
}

TEST(reply, holds_one_packet_unless_parts_are_allowed) {
    monsrv::reply one;
    EXPECT_FALSE(one.add_lines(std::string(8189, 'a') + "\nb\nc\n"));
    EXPECT_EQ(one.bytes.size(), 8190U) << "whole lines, and room for the NUL";
    EXPECT_FALSE(one.add_record(std::uint64_t{1}) || one.add("12345", 5) || one.add_lines("x\n"));
    EXPECT_EQ(one.room(), 0U);
    monsrv::reply many;
    many.allow_parts();
    EXPECT_TRUE(many.add_lines(std::string(409599, 'a')));
    EXPECT_EQ(many.room(), 1U);
}

TEST(first_samplers, answer_from_a_tree_of_another_machine) {
    const file_tree tree;
    tree.write("/proc/sys/kernel/osrelease", "6.1.0-board\n");
    tree.write("/proc/cpuinfo",
               "processor\t: 0\ncpu MHz\t\t: 1000.5\n\nprocessor\t: 2\ncpu MHz\t\t: 2400\n");
    tree.write("/sys/devices/system/cpu/cpu0/cpufreq/scaling_cur_freq", "1500000\n");
    const running_server server(tree.root());
    sysinfo_manager system("127.0.0.1", server.port());
    for (const auto& [possible, count] : {std::pair("0-7\n", 8),
                                          {"0\n", 1},
                                          {"0-3,8-11\n", 8},
                                          {"0-63\n", 64},
                                          {"0,2,4\n", 3},
                                          {"x\n", -EIO}}) {
        tree.write("/sys/devices/system/cpu/possible", possible);
        EXPECT_EQ(system.get_cpu_possible(nullptr), count) << possible;
    }
    EXPECT_EQ(system.get_version(), 0);
    EXPECT_EQ(system.last_version(), "6.1.0-board");
    EXPECT_EQ(system.get_cpu0_freq(), 0);
    EXPECT_EQ(system.last_cpu_freq(), 1500000U);
    EXPECT_EQ(system.get_cpu2_freq(), 0);
    EXPECT_EQ(system.last_cpu_freq(), 2400000U);
    EXPECT_EQ(system.get_cpu1_freq(), -ENOENT);
    sampler_asker asker(tree.root());
    tree.write("/proc/stat", "cpu  10 20\ncpu0 1 2 3\ncpu7 4\nintr 5 6\ncpu8 x\n");
    EXPECT_EQ(asker.ask(0xAE02, 1), 0);
    EXPECT_EQ(asker.bytes, "cpu  10 20\ncpu0 1 2 3\ncpu7 4\n");
    tree.write("/proc/stat", repeated("cpu1 1 2 3 4 5 6 7 8 9 10\n", 500));
    EXPECT_EQ(asker.ask(0xAE02, 1), 0);
    EXPECT_EQ(asker.bytes.size(), 8192U / 26 * 26) << "as many whole lines as fit";
}
