// mem, disk, part, thermal, ion, net and the summary as programs.
#include "child_process.h"
#include "loopback_pair.h"
#include "scripted_server.h"

#include <gmock/gmock.h>
#include <regex>

namespace {
using testing::HasSubstr;

/// A machine with one of everything.
class small_machine {
public:
    small_machine() {
        tree_.write("/proc/meminfo", "MemTotal: 2048 kB\nMemAvailable: 1024 kB\nSlab: 3 kB\n");
        tree_.write("/proc/diskstats", " 1 0 vda 9 9 4 9 9 9 8 9 9 9 9\n");
        tree_.write("/proc/mounts", "/dev/vda / ext4 rw 0 0\n/dev/vdb /a\\040b ext4 rw 0 0\n");
        tree_.write("/a b/x", "");
        tree_.write("/proc/net/dev", "  lo: 5 0 0 0 0 0 0 0 6 0 0 0 0 0 0 0\n");
        tree_.write("/sys/class/thermal/thermal_zone1/temp", "45500\n");
        tree_.write("/sys/class/thermal/cooling_device0/cur_state", "2\n");
    }
    child_process run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {MONCL_PROGRAM, "--root", tree_.root()});
        return child_process(arguments);
    }

private:
    file_tree tree_;
};

const struct {
    std::vector<std::string> arguments;
    std::string out; // a regular expression
    int status = 0;
} runs[] = {
    {{"mem"},
     "MemTotal: 2.0M, Available: 1.0M, Anon: 0.0K, File: 0.0K, Slab: 3.0K, "
     "Buffer/Cache: 0.0K\n"},
    {{"disk", "-i", "0.1", "-n", "1"}, "Device +vda +\nRd/Wr\\(KB/s\\) +0/0 +\n"},
    {{"part"}, "Partition Avail/Size: vda: [0-9.]+./[0-9.]+., vdb: [0-9.]+./[0-9.]+.\n"},
    {{"part", "/a b", "nosuch"}, "Partition Avail/Size: /a b: [0-9.]+./[0-9.]+.\n", 1},
    {{"part", std::string(1022, 'x')}, "", 2},
    {{"thermal"}, "Thermal\\(mC\\): +0 +45500 +Cooling_stat: +2 +\n"},
    {{"thermal", "--zone", "1"}, "45500\n"},
    {{"thermal", "--cooling", "0"}, "2\n"},
    {{"thermal", "--cooling", "1"}, "", 1},
    {{"ion"}, "no ion heaps\n"},
    {{"net", "-i", "0.1", "-n", "1", "--pid", "7", "--pid", "5", "--pid", "7"},
     "Net   Rate\\(KB/s\\)\nlo    0.00\npid:5, total 0 bytes, rate:0.00 Kbytes/s\n"
     "pid:7, total 0 bytes, rate:0.00 Kbytes/s\n"},
    {{"net", "--pid", "0"}, "", 2},
    {{"summary", "-i", "0.1", "-n", "1"},
     "memory    1.0M available of 2.0M: [^\n]*\ndisk      vda +0.0 KB/s read +0.0 KB/s written\n"
     "space     vda [^\n]*\n          vdb [^\n]*\nnetwork   lo +0.0 KB/s\n"
     "thermal   45.5 degrees Celsius\n"},
    {{"nosuch"}, "", 2},
};

TEST(peripheral_commands, report_a_tree_of_files) {
    const small_machine machine;
    for (const auto& each : runs) {
        child_process run = machine.run(each.arguments);
        EXPECT_EQ(run.wait(), each.status) << each.arguments[0] << run.err;
        EXPECT_TRUE(std::regex_match(run.out, std::regex(each.out)))
            << each.arguments[0] << ": " << run.out << run.err;
    }
}

TEST(peripheral_commands, without_a_command_this_machine_is_summed_up) {
    child_process run({MONCL_PROGRAM});
    EXPECT_EQ(run.wait(), 0);
    for (const char* line : {"system    ", "\ncpu       ", "\nmemory    ", "\nnetwork   lo "})
        EXPECT_THAT(run.out, HasSubstr(line));
}

TEST(peripheral_commands, summary_leaves_out_what_a_server_refuses) {
    scripted_server server;
    server.answer([](int command, int sub, const std::string&) -> answer_packets {
        if (command == 0xAE06 && sub == 26)
            return {packet(sub, "MemTotal: 2 kB\n")};
        return {error_packet(sub, -ENOSYS)};
    });
    child_process run({MONCL_PROGRAM, "summary", "-i", "0.05", "-n", "2", "--connect",
                       "127.0.0.1:" + std::to_string(server.port())});
    EXPECT_EQ(run.wait(), 0) << run.err;
    const std::string line = "memory    0.0K available of 2.0K: processes 0.0K, files 0.0K, "
                             "kernel objects 0.0K\n";
    EXPECT_EQ(run.out, line + "\n" + line);
}

// The bytes that a report says the process has carried.
long total_in(const std::string& report) {
    const std::size_t at = report.rfind("total ");
    return at == report.npos ? -1 : std::stol(report.substr(at + 6));
}

TEST(peripheral_commands, restarted_server_is_told_the_processes_again) {
    const loopback_pair pair;
    const auto serve = [](const std::string& port) {
        auto server = std::make_unique<child_process>(
            std::vector<std::string>{MONSRV_PROGRAM, "--port", port});
        server->read_until("\n");
        return server;
    };
    auto server = serve("0");
    const std::string port =
        std::to_string(std::stoi(server->out.substr(server->out.rfind(':') + 1)));
    child_process net({MONCL_PROGRAM, "--connect", "127.0.0.1:" + port, "net", "-i", "0.1", "--pid",
                       std::to_string(getpid())});
    net.read_until("Kbytes/s\n");
    server.reset();
    server = serve(port);
    ASSERT_TRUE(pair.carry(50000));
    for (int i = 0; i < 100 && total_in(net.out) < 50000; ++i)
        net.read_until("Kbytes/s\n");
    EXPECT_GE(total_in(net.out), 50000);
    net.send_signal(SIGINT);
    EXPECT_EQ(net.wait(), 0);
}
} // namespace
