// moncl against monsrv, as separate processes on this machine, on trees of files, and against
// a server that misbehaves.
#include "child_process.h"
#include "loopback_pair.h"
#include "manager_support.h"
#include "mon_cpu.h"
#include "process_files.h"
#include "tcp_sockets.h"

#include <cmath>
#include <limits>
#include <regex>

namespace {
using words = std::vector<std::string>;

std::string at(int port) {
    return "127.0.0.1:" + std::to_string(port);
}

// The command that @p line holds, blanks between its words.
struct moncl : child_process {
    explicit moncl(const std::string& line, int port = 0)
        : child_process(arguments(port == 0 ? line : "--connect " + at(port) + " " + line)) {}
    static words arguments(const std::string& line) {
        std::istringstream rest(MONCL_PROGRAM " " + line);
        return {std::istream_iterator<std::string>(rest), {}};
    }
    // Waits for its end.
    moncl& ends(int status) {
        EXPECT_EQ(wait(), status) << out << err;
        return *this;
    }
};

bool matches(const std::string& text, const std::string& pattern) {
    return std::regex_match(text, std::regex(pattern));
}

double figure(const std::string& text, const std::string& pattern) {
    std::smatch found;
    EXPECT_TRUE(std::regex_search(text, found, std::regex(pattern))) << pattern << ": " << text;
    return found.empty() ? NAN : std::stod(found[1]);
}

// Seconds a process has run and KiB it has written, so far.
std::pair<double, double> totals(int pid) {
    std::string text;
    monsrv::process_status status;
    const monsrv::all_processes processes(monsrv::host("/"));
    processes.read_stat(pid, text);
    monsrv::parse_process_stat(text, status);
    processes.read_io(pid, text);
    return {static_cast<double>(status.run_ticks) / 100,
            static_cast<double>(monsrv::storage_bytes(text)) / 1024};
}
} // namespace

TEST(end_to_end, cpu_shows_true_tables_of_this_machine) {
    server_process server;
    moncl cpu("cpu 0.3 2", server.port);
    cpu.ends(0);
    const std::string heading = "CPU   usr       sys       iowait    irq       sirq      usage +\n";
    const std::string row = "cpu\\d* +(\\d+\\.\\d\\d *% *){5}(\\d\\d?|100)\\.\\d\\d *%\n";
    EXPECT_TRUE(matches(cpu.out, "(" + heading + "(" + row + "){2,}){2}")) << cpu.out;
    EXPECT_EQ(cpu.err, "");
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
}

// However busy the machine is, a process used what it used between two readings of our own. Of
// samples 1 s apart, a delay of the first leaves at least half.
TEST(end_to_end, a_busy_writer_shows_in_proc_and_top) {
    const file_tree files;
    const child_process busy({"sh", "-c", "while :; do echo text; done >" + files.root() + "/f"});
    const std::string pid = std::to_string(busy.pid());
    const auto [run, written] = totals(busy.pid());
    moncl proc("proc " + pid + " 999999999");
    proc.ends(1);
    const auto [run2, written2] = totals(busy.pid());
    EXPECT_NE(proc.err.find("moncl: process 999999999: No such process\n"), std::string::npos);
    const double usage = figure(proc.out, "pid:" + pid + ", usage:([0-9.]+)%");
    EXPECT_TRUE(usage >= 1 && usage <= std::min(115.0, (run2 - run + 0.05) * 200)) << usage;
    const double rate = figure(proc.out, "write/s:([0-9.e+]+)");
    EXPECT_TRUE(rate >= (written2 - written) / 20 && rate <= (written2 - written) * 2) << rate;
    moncl top("top");
    top.ends(0);
    EXPECT_GE(figure(top.out, "\n +" + pid + " +\\d+ +\\d+ +([0-9.]+)"), 1);
}

TEST(end_to_end, ends_quietly) {
    for (int number : {SIGINT, SIGTERM}) {
        moncl cpu("cpu 0.1");
        cpu.read_until("usage");
        cpu.send_signal(number);
        cpu.ends(0);
        EXPECT_TRUE(matches(cpu.err, "moncl: asking a server inside .*, at 127.0.0.1:[0-9]+\n"));
    }
    child_process pipe(
        {"sh", "-c", "(" TEST_EMULATOR " " MONCL_PROGRAM " cpu 0.1; echo $? >&2) | head -1"});
    EXPECT_EQ(pipe.wait(), 0);
    EXPECT_EQ(pipe.err.substr(pipe.err.find('\n')), "\n0\n") << "nobody reads on";
    auto ending = std::make_unique<child_process>(words{"sleep", "60"});
    moncl proc("proc -i 0.1 " + std::to_string(ending->pid()));
    proc.read_until("state:");
    ending.reset();
    proc.ends(1);
}

TEST(end_to_end, recovers_when_the_server_is_back_and_fails_when_it_stays_away) {
    const loopback_pair pair;
    auto server = std::make_unique<server_process>();
    const int port = server->port;
    moncl given_up("cpu 0.2 4", port);
    moncl cpu("cpu 0.2", port);
    const bool counts = *TEST_EMULATOR == '\0'; // it has no socket diagnostics
    moncl net("net -i 0.1" + (counts ? " --pid " + std::to_string(getpid()) : ""), port);
    const std::string last = counts ? "Kbytes/s\n" : "lo ";
    given_up.read_until("usage");
    net.read_until(last);
    server.reset();
    cpu.read_until("no answer from " + at(port) + ", trying again\n", true);
    given_up.ends(1);
    server = std::make_unique<server_process>(port);
    cpu.read_until("is back\n", true);
    cpu.read_until("usage");
    // The restarted server is told the process again, and counts what it sends and receives.
    net.read_until("is back\n", true);
    net.read_until(last);
    if (counts) {
        auto total = [&net] {
            return figure(net.out.substr(net.out.rfind("total ")), "l (\\d+) b");
        };
        const double before = total();
        ASSERT_TRUE(pair.carry_50000());
        for (int i = 0; i < 100 && total() < before + 100000; ++i)
            net.read_until(last);
        EXPECT_EQ(total(), before + 100000);
    }
    child_process second({MONSRV_PROGRAM, "--port", std::to_string(port)});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_EQ(second.err, "monsrv: cannot listen at " + at(port) + ": Address already in use\n");
    server.reset();
    EXPECT_EQ(moncl("cpu", port).ends(1).err,
              "moncl: CPU connect to server failed, at " + at(port) + "\n");
}

TEST(end_to_end, ipv6_addresses_are_asked_in_brackets) {
    if (!std::ifstream("/proc/net/if_inet6").good())
        GTEST_SKIP() << "this host has no IPv6";
    struct {
        const char* bind;
        const char* printed;
        words asked;
    } const cases[] = {{"--bind=::1", "[::1]", {"[::1]"}},
                       {"--bind=[::1]", "[::1]", {"[::1]"}},
                       {"--bind=*", "*", {"[::1]", "127.0.0.1"}}};
    for (const auto& each : cases) {
        server_process server(0, each.bind);
        const std::string port = ":" + std::to_string(server.port);
        EXPECT_EQ(server.out, "monsrv: listening at " + (each.printed + port) + "\n");
        for (const std::string& address : each.asked) {
            moncl sysinfo("sysinfo --connect " + address + port);
            EXPECT_NE(sysinfo.ends(0).out.find("version"), std::string::npos) << each.bind;
        }
    }
}

TEST(end_to_end, commands_report_a_tree_of_files) {
    const file_tree tree;
    tree.write("/proc/meminfo", "MemTotal: 2048 kB\nMemAvailable: 1024 kB\nSlab: 3 kB\n");
    tree.write("/proc/diskstats", " 1 0 vda 9 9 4 9 9 9 8 9 9 9 9\n");
    tree.write("/proc/mounts", "/dev/vda / ext4 rw 0 0\n/dev/vdb /a ext4 rw 0 0\n");
    tree.write("/a/x", "");
    tree.write("/proc/net/dev", "  lo: 5 0 0 0 0 0 0 0 6 0 0 0 0 0 0 0\n");
    tree.write("/sys/class/thermal/thermal_zone1/temp", "45500\n");
    tree.write("/sys/class/thermal/cooling_device0/cur_state", "2\n");
    const std::tuple<std::string, int, std::string> runs[] = {
        {"mem", 0, "MemTotal: 2.0M, Available: 1.0M, Anon: 0.0K, File: 0.0K, Slab: 3.0K, .*\n"},
        {"disk -i 0.1 -n 1", 0, "Device +vda +\nRd/Wr\\(KB/s\\) +0/0 +\n"},
        {"part /a nosuch", 1, "Partition Avail/Size: /a: [0-9.]+./[0-9.]+.\n"},
        {"part " + std::string(1022, 'x'), 2, ""},
        {"thermal", 0, "Thermal\\(mC\\): +- +45500 +Cooling_stat: +2 +\n"},
        {"thermal --cooling 1", 1, ""},
        {"ion", 0, "no ion heaps\n"},
        {"net -i 0.1 -n 1", 0, "Net   Rate\\(KB/s\\)\nlo    0.00\n"},
        {"net -i 0.1 -n 1 --pid 7", 1, ""},
        {"net --pid 0", 2, ""},
        {"summary -i 0.1 -n 1", 0,
         "memory    1.0M available of 2.0M: .*\ndisk      vda +0.0 KB/s read +0.0 KB/s written\n"
         "space     vda .*\n          vdb .*\nnetwork   lo +0.0 KB/s\nthermal   45.5 deg.*\n"}};
    for (const auto& [line, status, out] : runs) {
        moncl run("--root " + tree.root() + " " + line);
        EXPECT_TRUE(matches(run.ends(status).out, out)) << line << ": " << run.out << run.err;
    }
    const std::string subjects = "system [^]*\ncpu [^]*\nmemory [^]*\nnetwork   lo [^]*";
    EXPECT_TRUE(matches(moncl("").ends(0).out, subjects)) << "of this machine";
    EXPECT_TRUE(matches(moncl("irq").ends(0).out, " +CPU0[^]*\n[^]*\n"));
}

TEST(end_to_end, shows_figures_and_names_no_server_of_ours_would_send) {
    scripted_server server;
    server.answer([](int, int sub, const std::string&) -> answer_packets {
        top_pid_info table{};
        table.pid_num = 1000000;
        for (pid_msg& row : table.send_pid_info)
            row.process_usage = std::numeric_limits<float>::quiet_NaN();
        pid_msg& busiest = table.send_pid_info[99];
        busiest.process_usage = 1;
        std::memcpy(busiest.comm, "\033[2J\nabcdefghijk", sizeof busiest.comm);
        return {sub == 8 ? packet(sub, native(table)) : error_packet(sub, -ENOSYS)};
    });
    moncl top("top 0.02 1", server.port());
    top.ends(0);
    EXPECT_EQ(std::count(top.out.begin(), top.out.end(), '\n'), 147);
    EXPECT_LT(top.out.find(" ?[2J?abcdefghijk\n"), 300U) << top.out;
    EXPECT_EQ(top.out.find('\033'), top.out.npos);
    EXPECT_EQ(moncl("summary -i 0.05 -n 1", server.port()).ends(0).out.substr(0, 9), "processes");
}
