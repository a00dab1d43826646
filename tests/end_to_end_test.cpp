// moncl against monsrv, as separate processes on this machine, on trees of files, and against
// servers that misbehave.
#include "child_process.h"
#include "loopback_pair.h"
#include "mon_cpu.h"
#include "process_files.h"
#include "scripted_server.h"

#include <chrono>
#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <regex>

namespace {
using ::testing::HasSubstr;
using words = std::vector<std::string>;

std::string at(int port) {
    return "127.0.0.1:" + std::to_string(port);
}

// monsrv at a port, which stays its own when it is started again.
struct server_process : child_process {
    explicit server_process(int wanted = 0)
        : child_process({MONSRV_PROGRAM, "--port", std::to_string(wanted)}) {
        read_until("\n");
        port = std::stoi(out.substr(out.rfind(':') + 1));
    }
    int port;
};

struct moncl : child_process {
    explicit moncl(words arguments, int port = 0) : child_process(command(arguments, port)) {}
    static words command(words arguments, int port) {
        arguments.insert(arguments.begin(), MONCL_PROGRAM);
        if (port != 0)
            arguments.insert(arguments.begin() + 1, {"--connect", at(port)});
        return arguments;
    }
};

double figure(const std::string& text, const std::string& pattern) {
    std::smatch found;
    const bool any = std::regex_search(text, found, std::regex(pattern));
    EXPECT_TRUE(any) << "no " << pattern << " in: " << text;
    return any ? std::stod(found[1]) : NAN;
}

// The running totals of a process.
struct totals {
    explicit totals(int pid) {
        const monsrv::host env("/");
        std::string text;
        monsrv::process_status status;
        if (monsrv::read_process_stat(env, pid, text) == 0)
            monsrv::parse_process_stat(text, status);
        run_seconds = static_cast<double>(status.run_ticks) / 100;
        if (monsrv::read_process_io(env, pid, text) == 0)
            stored_kib = static_cast<double>(monsrv::storage_bytes(text)) / 1024;
    }
    double run_seconds = 0;
    double stored_kib = 0;
    std::chrono::steady_clock::time_point when = std::chrono::steady_clock::now();
};

// The shortest time between two samples 1 s apart of which a busy machine delays the first.
constexpr double shortest = 0.5;

// What a program that measured between two readings of our own may say: however busy the machine
// is, the process used what it used between the readings.
void expect_usage_between(double usage, const totals& before, const totals& after) {
    const double all = std::chrono::duration<double>(after.when - before.when).count();
    const double used = after.run_seconds - before.run_seconds;
    EXPECT_LE(usage, std::min(115.0, (used + 0.05) / shortest * 100));
    EXPECT_GE(usage, std::max(1.0, (1 - (all - used + 0.05) / shortest) * 100));
}
} // namespace

TEST(end_to_end, cpu_shows_true_tables_of_this_machine) {
    server_process server;
    moncl cpu({"cpu", "0.3", "2"}, server.port);
    EXPECT_EQ(cpu.wait(), 0);
    EXPECT_EQ(cpu.err, "");
    const std::string heading = "CPU   usr       sys       iowait    irq       sirq      usage +\n";
    const std::string table =
        heading + "(cpu\\d* +(\\d+\\.\\d\\d *% *){5}(\\d\\d?|100)\\.\\d\\d *%\n){2,}";
    EXPECT_TRUE(std::regex_match(cpu.out, std::regex("(" + table + "){2}"))) << cpu.out;
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
}

TEST(end_to_end, a_busy_writer_shows_in_proc_and_top) {
    const file_tree files;
    const child_process busy({"sh", "-c", "while :; do echo text; done >" + files.root() + "/f"});
    const std::string pid = std::to_string(busy.pid());
    const totals first(busy.pid());
    moncl proc({"proc", pid, "999999999"});
    EXPECT_EQ(proc.wait(), 1);
    const totals second(busy.pid());
    EXPECT_THAT(proc.err, HasSubstr("moncl: process 999999999: No such process\n"));
    expect_usage_between(figure(proc.out, "pid:" + pid + ", usage:([0-9.]+)%"), first, second);
    const double stored = second.stored_kib - first.stored_kib; // 0 where files are in memory
    const double rate = figure(proc.out, "write/s:([0-9.e+]+)");
    EXPECT_LE(rate, stored / shortest);
    EXPECT_GE(rate, stored / 20);
    moncl top({"top"});
    EXPECT_EQ(top.wait(), 0);
    const totals third(busy.pid());
    expect_usage_between(figure(top.out, "\n +" + pid + " +\\d+ +\\d+ +([0-9.]+)"), second, third);
}

TEST(end_to_end, ends_quietly) {
    for (const words& arguments : {words{"cpu", "0.1"}, words{"top", "-i", "0.1"}}) {
        moncl cpu(arguments);
        cpu.read_until("\n");
        cpu.send_signal(arguments[0] == "cpu" ? SIGINT : SIGTERM);
        EXPECT_EQ(cpu.wait(), 0);
        EXPECT_THAT(cpu.err, testing::MatchesRegex("moncl: asking a server inside this program, at "
                                                   "127.0.0.1:[0-9]+\n"));
    }
    child_process broken({"sh", "-c", "(" MONCL_PROGRAM " cpu 0.1; echo $? >&2) | head -1"});
    EXPECT_EQ(broken.wait(), 0);
    EXPECT_THAT(broken.err, HasSubstr("\n0\n"));
    auto ending = std::make_unique<child_process>(words{"sleep", "60"});
    moncl proc({"proc", std::to_string(ending->pid()), "-i", "0.1"});
    proc.read_until("state:");
    ending.reset();
    EXPECT_EQ(proc.wait(), 1) << "the last process watched is gone";
}

TEST(end_to_end, recovers_when_the_server_is_back_and_fails_when_it_stays_away) {
    const loopback_pair pair;
    auto server = std::make_unique<server_process>();
    const int port = server->port;
    moncl given_up({"cpu", "0.2", "4"}, port);
    moncl cpu({"cpu", "0.2"}, port);
    moncl net({"net", "-i", "0.1", "--pid", std::to_string(getpid())}, port);
    given_up.read_until("usage");
    cpu.read_until("usage");
    net.read_until("Kbytes/s\n");
    server.reset();
    cpu.read_until("no answer from " + at(port) + ", trying again\n", true);
    EXPECT_EQ(given_up.wait(), 1);
    server = std::make_unique<server_process>(port);
    cpu.read_until("is back\n", true);
    cpu.read_until("usage");
    ASSERT_TRUE(pair.carry(50000));
    auto counted = [&net] { return std::stol(net.out.substr(net.out.rfind("total ") + 6)); };
    for (int i = 0; i < 100 && counted() < 50000; ++i)
        net.read_until("Kbytes/s\n");
    EXPECT_GE(counted(), 50000) << "a restarted server is told the processes again";
    child_process second({MONSRV_PROGRAM, "--port", std::to_string(port)});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_THAT(second.err, HasSubstr("Address already in use"));
    server.reset();
    moncl unasked({"cpu"}, port);
    EXPECT_EQ(unasked.wait(), 1);
    EXPECT_EQ(unasked.err, "moncl: CPU connect to server failed, at " + at(port) + "\n");
    child_process misused({MONSRV_PROGRAM, "--port", "70000"});
    EXPECT_EQ(misused.wait(), 2);
}

TEST(end_to_end, commands_report_a_tree_of_files) {
    const file_tree tree;
    tree.write("/proc/meminfo", "MemTotal: 2048 kB\nMemAvailable: 1024 kB\nSlab: 3 kB\n");
    tree.write("/proc/diskstats", " 1 0 vda 9 9 4 9 9 9 8 9 9 9 9\n");
    tree.write("/proc/mounts", "/dev/vda / ext4 rw 0 0\n/dev/vdb /a\\040b ext4 rw 0 0\n");
    tree.write("/a b/x", "");
    tree.write("/proc/net/dev", "  lo: 5 0 0 0 0 0 0 0 6 0 0 0 0 0 0 0\n");
    tree.write("/sys/class/thermal/thermal_zone1/temp", "45500\n");
    tree.write("/sys/class/thermal/cooling_device0/cur_state", "2\n");
    const struct {
        words arguments;
        std::string out; // a regular expression
        int status = 0;
    } runs[] = {
        {{"mem"},
         "MemTotal: 2.0M, Available: 1.0M, Anon: 0.0K, File: 0.0K, Slab: 3.0K, Buffer.*\n"},
        {{"disk", "-i", "0.1", "-n", "1"}, "Device +vda +\nRd/Wr\\(KB/s\\) +0/0 +\n"},
        {{"part"}, "Partition Avail/Size: vda: [0-9.]+./[0-9.]+., vdb: [0-9.]+./[0-9.]+.\n"},
        {{"part", "/a b", "nosuch"}, "Partition Avail/Size: /a b: [0-9.]+./[0-9.]+.\n", 1},
        {{"part", std::string(1022, 'x')}, "", 2},
        {{"thermal"}, "Thermal\\(mC\\): +0 +45500 +Cooling_stat: +2 +\n"},
        {{"thermal", "--zone", "1"}, "45500\n"},
        {{"thermal", "--cooling", "1"}, "", 1},
        {{"ion"}, "no ion heaps\n"},
        {{"net", "-i", "0.1", "-n", "1", "--pid", "7", "--pid", "5", "--pid", "7"},
         "Net   Rate\\(KB/s\\)\nlo    0.00\npid:5, total 0 bytes, rate:0.00 Kbytes/s\npid:7, .*\n"},
        {{"net", "--pid", "0"}, "", 2},
        {{"summary", "-i", "0.1", "-n", "1"},
         "memory    1.0M available of 2.0M: [^\n]*\ndisk      vda +0.0 KB/s read +0.0 KB/s "
         "written\n"
         "space     vda [^\n]*\n          vdb [^\n]*\nnetwork   lo +0.0 KB/s\n"
         "thermal   45.5 degrees Celsius\n"},
        {{"nosuch"}, "", 2},
    };
    for (const auto& each : runs) {
        words arguments = each.arguments;
        arguments.insert(arguments.begin(), {"--root", tree.root()});
        moncl run(arguments);
        EXPECT_EQ(run.wait(), each.status) << each.arguments[0] << run.err;
        EXPECT_TRUE(std::regex_match(run.out, std::regex(each.out)))
            << each.arguments[0] << ": " << run.out << run.err;
    }
    moncl summary({}); // of this machine
    EXPECT_EQ(summary.wait(), 0);
    const std::regex subjects("system    [^]*\ncpu       [^]*\nmemory    [^]*\nnetwork   lo [^]*");
    EXPECT_TRUE(std::regex_match(summary.out, subjects)) << summary.out;
    moncl irq({"irq"});
    EXPECT_EQ(irq.wait(), 0);
    EXPECT_TRUE(std::regex_match(irq.out, std::regex(" +CPU0[^]*\n[^]*\n"))) << irq.out;
}

TEST(end_to_end, odd_servers) {
    scripted_server server;
    int reads = 0;
    server.answer([&reads](int command, int sub, const std::string&) -> answer_packets {
        if (command == 0xAE06 && sub == 26)
            return {packet(sub, "MemTotal: 2 kB\n")};
        // A server restarted unnoticed does not count, and one that was silent has forgotten.
        if (command == 0xAE02 && sub == 11 && ++reads == 1)
            return {error_packet(sub, -ENODATA)};
        if (command == 0xAE02 && sub == 11 && reads == 2)
            return {};
        if (command == 0xAE02 && sub >= 10)
            return {packet(sub, std::string(sub == 11 ? sizeof(perf_counters) : 0, '\1'))};
        if (sub != 8)
            return {error_packet(sub, -ENOSYS)};
        // Figures and names no server of ours would send.
        top_pid_info table{};
        table.pid_num = 1000000;
        for (pid_msg& row : table.send_pid_info)
            row.process_usage = std::numeric_limits<float>::quiet_NaN();
        pid_msg& busiest = table.send_pid_info[99];
        busiest.process_usage = 1;
        busiest.rss = -1;
        std::memcpy(busiest.comm, "\033[2J\nabcdefghijk", sizeof busiest.comm);
        return {packet(sub, {reinterpret_cast<const char*>(&table), sizeof table})};
    });
    moncl summary({"summary", "-i", "0.05", "-n", "2"}, server.port());
    EXPECT_EQ(summary.wait(), 0) << summary.err;
    const std::string line = "memory    0.0K available of 2.0K: processes 0.0K, files 0.0K, "
                             "kernel objects 0.0K\n";
    EXPECT_EQ(summary.out, line + "\n" + line) << "what is refused is left out";
    moncl top({"top", "0.02", "1"}, server.port());
    EXPECT_EQ(top.wait(), 0);
    EXPECT_EQ(std::count(top.out.begin(), top.out.end(), '\n'), 147);
    EXPECT_THAT(top.out.substr(top.out.find('\n'), 95), HasSubstr(" ?[2J?abcdefghijk\n"));
    EXPECT_EQ(top.out.find('\033'), top.out.npos);
    server.take_requests();
    moncl perf({"perf", "0.1", "5"}, server.port());
    EXPECT_EQ(perf.wait(), 0);
    std::string subs;
    for (const std::string& request : server.take_requests())
        subs += std::to_string(header_of(request).sub_command) + " ";
    EXPECT_EQ(subs, "10 11 10 11 10 11 10 11 10 8 12 ");
    EXPECT_THAT(perf.out, HasSubstr("IPC:                    1.00\n"));
}
