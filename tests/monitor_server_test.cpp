// The server as seen from the wire: ids, refusals, packets; and the samplers of the first subjects.
#include "client_ids.h"
#include "cpu_stat_manager.h"
#include "sys_info_manager.h"

#include "child_process.h"
#include "manager_support.h"
#include "running_server.h"
#include "sampler_asker.h"

namespace {
// Sends @p request as it is: the answer's error code or its size.
int ask(client_comm& connection, const std::string& request, int flags = 0) {
    zmq_send(connection.get_socket(), request.data(), request.size(), flags);
    return flags != 0 ? 0 : connection.recv_msg_from_server();
}
} // namespace

TEST(monitor_server, refuses_what_it_does_not_understand_and_goes_on) {
    const running_server server;
    const auto client = server.connect();
    auto with = [](int command, int sub, int msg_len, std::size_t size = 52) {
        return field(native(command) + native(sub) + native(msg_len), size);
    };
    // An oversized message costs its sender the connection, nobody else's.
    const auto flood = server.connect();
    ask(*flood, std::string(70000, 'x'), ZMQ_DONTWAIT);
    const std::pair<std::string, int> cases[] = {
        {with(1, 1, 4), -ENOSYS},
        {with(0xAE02, 999, 4), -ENOSYS},
        {with(0xEAEA, 3, 4), -ENOSYS},
        {with(0xEAEA, 2, 1), -EINVAL},
        {with(0xEAEA, 2, 0), -EINVAL},
        {"", -EBADMSG},
        {with(0xAE02, 1, 0, 43), -EBADMSG},
        {with(0xAE02, 1, 9, 52), -EBADMSG},
        {with(0xAE02, 1, 1025, 2000), -EBADMSG},
        {with(0xAE02, 1, -1), -EBADMSG},
        {with(0xAE02, 1, 4).replace(40, 1, "\7"), -EBADMSG},
        {with(0xAE02, 1, 0, 44), 8240},
        {with(0xAE02, 1, 4), 8240}};
    for (const auto& [request, result] : cases)
        EXPECT_EQ(ask(*client, request), result);
    ask(*client, with(0xAE02, 1, 4), ZMQ_SNDMORE);
    EXPECT_EQ(ask(*client, "second part"), 8240);
    close_at_once(*flood);
    close_at_once(*client);
}

TEST(monitor_server, grants_ids_until_none_is_left) {
    const running_server server;
    const auto client = server.connect(); // has id 1
    auto granted = [&client] {
        ask(*client, request_bytes(0xEAEA, 1, ""));
        return client->get_recv_data()->msg[0];
    };
    for (int id = 2; id <= 256; ++id)
        ASSERT_EQ(granted(), id % 256);
    EXPECT_EQ(ask(*client, request_bytes(0xEAEA, 2, "M")), 8240);
    EXPECT_EQ(ask(*client, request_bytes(0xEAEA, 2, "M")), -EINVAL);
    EXPECT_EQ(granted(), 'M');
    close_at_once(*client);
}

TEST(client_ids, reclaim_abandoned_ones_last_and_keep_those_of_before_a_restart) {
    monsrv::client_ids ids;
    const auto start = monsrv::client_ids::clock::now();
    auto granted = [&](int minute) { return ids.grant(start + std::chrono::minutes(minute)); };
    ids.seen(1, start);
    EXPECT_EQ(granted(0), 2);
    for (int i = 3; i <= 255; ++i)
        granted(30);
    EXPECT_EQ(granted(59), 0);
    ids.seen(1, start + std::chrono::minutes(60));
    EXPECT_EQ(granted(61), 2);
}

TEST(first_samplers, answer_from_a_tree_of_another_machine) {
    const file_tree tree;
    tree.write("/proc/sys/kernel/osrelease", "6.1.0-board\n");
    tree.write("/proc/cpuinfo", "processor : 0\ncpu MHz : 1000.5\n\nprocessor : 2\ncpu MHz : 2400");
    tree.write("/sys/devices/system/cpu/cpu0/cpufreq/scaling_cur_freq", "1500000\n");
    sampler_asker asker(tree.root());
    auto answer = [&asker](int command, int sub) {
        const int result = asker.ask(command, sub);
        return result != 0 ? std::to_string(result) : asker.bytes;
    };
    auto possible = [&](const std::string& list) {
        tree.write("/sys/devices/system/cpu/possible", list);
        return answer(0xAE01, 9);
    };
    expect_each(possible, {"0-7\n => 0-7\n", "0\n => 0-0\n", "0-3,8-11\n => 0-7\n",
                           "0,2,4 => 0-2\n", "x => " + std::to_string(-EIO)});
    EXPECT_EQ(answer(0xAE01, 10) + answer(0xAE01, 1) + answer(0xAE01, 3) + answer(0xAE01, 2),
              "6.1.0-board\n1500000\n2400000\n" + std::to_string(-ENOENT));
    tree.write("/new", "6.2.0-board\n");
    std::filesystem::rename(tree.root() + "/new", tree.root() + "/proc/sys/kernel/osrelease");
    EXPECT_EQ(answer(0xAE01, 10), "6.2.0-board\n") << "a file that was replaced";
    tree.write("/proc/stat", "cpu  10 20\ncpu0 1 2 3\ncpu7 4\nintr 5 6\ncpu8 x\n");
    EXPECT_EQ(answer(0xAE02, 1), "cpu  10 20\ncpu0 1 2 3\ncpu7 4\n");
    const std::string line = "cpu1 1 2 3 4 5 6 7 8 9 10\n";
    tree.write("/proc/stat", repeated(line, 500));
    EXPECT_EQ(answer(0xAE02, 1), repeated(line, 315)) << "as many whole lines as fit";
}
