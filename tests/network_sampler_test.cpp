// Bytes of network devices and of registered processes.
#include "child_process.h"
#include "manager_support.h"
#include "sampler_asker.h"

namespace {
enum { add = 1, remove_process, start, bandwidth, leave };

std::string device_lines(int count) {
    return "Inter-|   Receive\n face |bytes\n" +
           repeated(" dev:256 1 0 0 0 0 0 0 5 1 0 0 0 0 0 0\n", count) + "torn: 1 2\n";
}

struct net_asker : sampler_asker {
    using sampler_asker::sampler_asker;
    int net(int sub, int client, int pid = 0) {
        return ask(0xAE09, sub, native(pid), static_cast<std::uint8_t>(client));
    }
    // "DEVICES: PROCESS PROCESS ": the count of devices and the process ids of the answer.
    std::string listed(int client) {
        EXPECT_EQ(net(bandwidth, client), 0);
        const auto devices = record<std::uint32_t>(0);
        std::string text = std::to_string(devices) + ": ";
        for (std::size_t i = 0, at = 4 + 24 * devices; i < record<std::uint32_t>(at); ++i)
            text += line_of(record<process_net_s>(at + 4 + i * 16).pid);
        return text;
    }
};

TEST(network_sampler, each_client_has_a_set_of_its_own) {
    const file_tree tree;
    tree.write("/proc/net/dev", device_lines(1));
    net_asker asker(tree.root());
    for (int pid : {30, 10, 10})
        EXPECT_EQ(asker.net(add, 1, pid), 0);
    EXPECT_EQ(asker.listed(1), "1: ") << "not started";
    EXPECT_EQ(asker.bytes.substr(4, 24), field("dev", 16) + native(__builtin_bswap64(256 + 5)));
    for (int client : {1, 2})
        EXPECT_EQ(asker.net(start, client), 0);
    EXPECT_EQ(asker.net(add, 2, 20), 0);
    EXPECT_EQ(asker.listed(1) + asker.listed(2), "1: 10 30 1: 20 ");
    for (int pid : {20, 30})
        EXPECT_EQ(asker.net(remove_process, 1, pid), 0);
    EXPECT_EQ(asker.listed(1) + asker.listed(2), "1: 10 1: 20 ");
    asker.client_gone(1);
    EXPECT_EQ(asker.listed(1) + asker.listed(2), "1: 1: 20 ");
    for (int sub : {leave, start})
        EXPECT_EQ(asker.net(sub, 2), 0);
    EXPECT_EQ(asker.listed(2), "1: ");
    for (int pid : {0, -1})
        EXPECT_EQ(asker.net(add, 1, pid), -EINVAL);
    EXPECT_EQ(asker.ask(0xAE09, add, "\1\1"), -EINVAL);
    // Processes and devices share one packet.
    tree.write("/proc/net/dev", device_lines(900));
    EXPECT_EQ(asker.listed(1), "341: ");
    asker.net(start, 1);
    for (int pid = 1; pid <= 257; ++pid)
        EXPECT_EQ(asker.net(add, 1, pid), pid <= 256 ? 0 : -ENOSPC);
    EXPECT_EQ(asker.listed(1).substr(0, 9), "170: 1 2 ");
    EXPECT_EQ(asker.bytes.size(), 8U + 170 * 24 + 256 * 16);
}

} // namespace
