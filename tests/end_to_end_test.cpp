// moncl against monsrv, as separate processes on this machine: true figures, servers that go and
// come back, output that other programs read, ends by signals and errors.
#include "child_process.h"
#include "mon_cpu.h"
#include "process_files.h"
#include "simulated_board.h"

#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

namespace {
using nlohmann::json;
using words = std::vector<std::string>;

std::string at(int port) {
    return "127.0.0.1:" + std::to_string(port);
}

// moncl with what @p line holds, blanks between its words, and its JSON Lines.
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
    // All samples; fails a test if the last line is not whole.
    std::vector<json> samples() const {
        std::vector<json> all;
        std::istringstream lines(out);
        for (std::string line; std::getline(lines, line);)
            all.push_back(json::parse(line));
        EXPECT_EQ(out.back(), '\n');
        return all;
    }
};

// A command of the shell, in which $moncl is the program.
struct shell : child_process {
    explicit shell(const std::string& command)
        : child_process({"sh", "-c", "moncl='" TEST_EMULATOR " " MONCL_PROGRAM "'; " + command}) {
        status = wait();
    }
    int status;
};

// Seconds a process has run and bytes it has written, so far.
std::pair<double, double> totals(int pid) {
    std::string text;
    monsrv::process_status status;
    const monsrv::all_processes processes(monsrv::host("/"));
    processes.read_stat(pid, text);
    monsrv::parse_process_stat(text, status);
    processes.read_io(pid, text);
    return {static_cast<double>(status.run_ticks) / 100,
            static_cast<double>(monsrv::storage_bytes(text))};
}
} // namespace

// No time of the kernel's CPU table is lost, and none is counted twice.
TEST(end_to_end, several_subjects_of_this_machine_are_json_that_adds_up) {
    server_process server;
    moncl run("part,system,cpu,mem,disk,net,top,irq 0.3 2 --json -P ALL -P all", server.port);
    std::map<std::string, int> reports;
    for (const json& sample : run.ends(0).samples()) {
        ++reports[sample["subject"]];
        EXPECT_EQ(sample["host"], at(server.port));
        EXPECT_NEAR(sample["interval_s"].get<double>(), 0.3, 0.25);
        for (const json& row : sample["subject"] == "cpu" ? sample["rows"] : json::array()) {
            double share = 0;
            for (const auto& [name, value] : row.items())
                if (name.find("_percent") != name.npos && name != "usage_percent")
                    share += value.get<double>();
            EXPECT_NEAR(share, 100, 0.01) << row;
        }
        if (sample["subject"] != "mem")
            continue;
        EXPECT_EQ(sample["rows"][0]["total_bytes"],
                  static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                      static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
    }
    EXPECT_EQ(reports["cpu"], 2);
    EXPECT_EQ(reports.size(), 8U);
    // A busy host has more processes than an answer names.
    if (run.err != "moncl: the server names at most 146 processes: the busiest\n") {
        EXPECT_EQ(run.err, "");
    }
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
    moncl proc("proc --json -p 999999999 -p " + pid);
    proc.ends(1);
    const auto [run2, written2] = totals(busy.pid());
    EXPECT_EQ(proc.err, "moncl: process 999999999: No such process\n");
    const json row = proc.samples().at(0)["rows"].at(0);
    EXPECT_EQ(row["command"], "sh");
    const auto usage = row["usage_percent"].get<double>();
    EXPECT_TRUE(usage >= 1 && usage <= std::min(115.0, (run2 - run + 0.05) * 200)) << row;
    const auto rate = row["written_bytes_per_second"].get<double>();
    EXPECT_TRUE(rate >= (written2 - written) / 20 && rate <= (written2 - written) * 2) << row;
    moncl top("top --json --only " + pid);
    EXPECT_GE(top.ends(0).samples().at(0)["rows"].at(0)["usage_percent"].get<double>(), 1);
}

TEST(end_to_end, recovers_when_the_server_is_back_and_fails_when_it_stays_away) {
    auto server = std::make_unique<server_process>();
    const int port = server->port;
    moncl given_up("cpu 0.2 4", port);
    moncl cpu("cpu 0.2 --json", port);
    const bool counts = *TEST_EMULATOR == '\0'; // it has no socket diagnostics
    moncl net((counts ? "pnet,net 0.1 --json -p " + std::to_string(getpid()) : "net 0.1"), port);
    given_up.read_until("%usage");
    net.read_until("\n");
    server.reset();
    const std::string away = "moncl: no answer from " + at(port) +
                             " within 1 s: is monsrv running there and is the port open?\n";
    cpu.read_until(away, true);
    given_up.ends(1);
    server = std::make_unique<server_process>(port);
    cpu.read_until(" is back\n", true);
    cpu.read_until("\"interval_s\":0.");
    net.read_until(" is back\n", true);
    if (counts) // the restarted server is told the process again
        net.read_until("\"pid\":\"" + std::to_string(getpid()) + "\",\"bytes\":0,");
    server.reset();
    EXPECT_EQ(moncl("cpu", port).ends(1).err, away);
}

TEST(end_to_end, monitor_shows_what_the_server_counts) {
    server_process server;
    moncl run("mem,monitor --json --connect " + at(server.port));
    const auto rows = run.ends(0).samples().back()["rows"];
    EXPECT_EQ(rows.back()["query"], "server");
    EXPECT_EQ(rows.back()["server_connections"], 1);
    EXPECT_EQ(rows.back()["server_requests"], 3) << "an id, the memory and the counts";
}

TEST(end_to_end, ipv6_addresses_are_asked_in_brackets) {
    if (!std::ifstream("/proc/net/if_inet6").good())
        GTEST_SKIP() << "this host has no IPv6";
    const struct {
        const char* bind;
        const char* printed;
        words asked;
    } cases[] = {{"--bind=::1", "[::1]", {"[::1]"}},
                 {"--bind=[::1]", "[::1]", {"[::1]"}},
                 {"--bind=*", "*", {"[::1]", "127.0.0.1"}}};
    for (const auto& each : cases) {
        server_process server(0, each.bind, {"--insecure"});
        const std::string port = ":" + std::to_string(server.port);
        EXPECT_EQ(server.out, "monsrv: listening at " + (each.printed + port) + "\n");
        for (const std::string& address : each.asked) {
            moncl system("system --json --connect " + address + port);
            EXPECT_EQ(system.ends(0).samples().at(0)["host"], address + port) << each.bind;
        }
    }
    server_process server;
    child_process second(server_process::command(server.port, "--root=/", own_rights()));
    EXPECT_EQ(second.wait(), 1);
    EXPECT_EQ(second.err.substr(second.err.rfind("monsrv: ")),
              "monsrv: cannot listen at " + at(server.port) + ": Address already in use\n");
}

TEST(end_to_end, what_a_host_lacks_is_said_in_words) {
    const file_tree tree;
    tree.write("/proc/meminfo", "MemTotal: 2048 kB\nMemAvailable: 1024 kB\nSlab: 3 kB\n");
    tree.write("/proc/diskstats", " 1 0 vda 9 9 4 9 9 9 8 9 9 9 9\n");
    tree.write("/proc/net/dev", "  lo: 5 0 0 0 0 0 0 0 6 0 0 0 0 0 0 0\n");
    tree.write("/proc/mounts", "");
    tree.write("/proc/stat", "cpu  1 0 0 9 0 0 0 0 0 0\ncpu0 1 0 0 9 0 0 0 0 0 0\n");
    const std::string mem = "total available %used free buffers cached slab file anon\n"
                            " 2.0M      1.0M 50.00    -    0.0B      - 3.0K    -    -\n";
    const std::string too_long(1022, 'x');
    const std::pair<std::string, std::string> cases[] = {
        // and a status that is not 0
        {"0.01 1",
         "CPU %user %nice %system %iowait %irq %soft %steal %guest %idle %usage\n"
         "all     -     -       -       -    -     -      -      -     -      -\n"
         "+1 more\n\n" +
             mem +
             "\nDevice read written rd_kB/s wr_kB/s\nvda    2.0K    4.0K    0.00    0.00\n"
             "\nDevice carried kB/s\nlo       11.0B 0.00\n"},
        {"mem --report library", "MemTotal: 2.0M, Available: 1.0M, Anon: 0.0K, File: 0.0K, "
                                 "Slab: 3.0K, Buffer/Cache: 0.0K\n"},
        {"mem,ion,thermal", mem +
                                "moncl: this host has no ion heaps (try --simulate-board)\n"
                                "moncl: this host has no thermal zones (try --simulate-board)\n1"},
        {"nnu,fps,isp,pym,gdc",
         "moncl: this host has no NNU (try --simulate-board)\n"
         "moncl: this host has no video pipeline (try --simulate-board)\n"
         "moncl: this host has no image signal processor (try --simulate-board)\n"
         "moncl: this host has no pyramid scaler (try --simulate-board)\n"
         "moncl: this host has no distortion correction (try --simulate-board)\n1"},
        {"cpu 0.01 1 -P 9", "moncl: cpu: the server has no figures of CPU 9\n1"},
        {"perf", "moncl: perf: a server that reads a tree of files has no machine whose events it "
                 "could count (try without --root)\n1"},
        {"part /nosuch", "moncl: the server has no figures of a file system /nosuch\n1"},
        {"part " + too_long, "moncl: the name is too long for a request: " + too_long + "\n1"},
        {"pnet -p 7", "moncl: process 7: No such process\n1"},
    };
    for (const auto& [line, shown] : cases) {
        moncl run("--root " + tree.root() + " " + line);
        const int status = run.wait();
        EXPECT_EQ(run.out + run.err + (status == 0 ? "" : std::to_string(status)), shown) << line;
    }
}

TEST(end_to_end, output_ends_in_whole_lines_and_no_error_is_lost) {
    for (int number : {SIGINT, SIGTERM}) {
        moncl cpu("cpu 0.01 --json");
        cpu.read_until("}\n");
        cpu.send_signal(number);
        EXPECT_FALSE(cpu.ends(0).samples().empty());
        EXPECT_EQ(cpu.err, "");
    }
    const struct {
        const char* name;
        const char* command;
        int status;
        std::string err;
    } cases[] = {
        {"a full disk", "$moncl cpu >/dev/full", 1,
         "moncl: cannot write: No space left on device\n"},
        {"a reader that goes away", "($moncl cpu 0.05; echo $? >&2) | head -1", 0, "0\n"},
        {"a simulated board", "$moncl nnu --simulate-board >/dev/null", 0,
         "moncl: " + std::string(monsrv::simulation_notice) + "\n"},
        {"no standard output", "$moncl cpu >&-", 1, "moncl: cannot write: Bad file descriptor\n"},
    };
    for (const auto& each : cases) {
        const shell run(each.command);
        EXPECT_EQ(run.status, each.status) << each.name;
        EXPECT_EQ(run.err, each.err) << each.name;
    }
}

TEST(end_to_end, other_programs_read_the_machine_forms) {
    const file_tree tree;
    tree.write("/proc/diskstats",
               "1 0 a,b\"c 9 9 4 9 9 9 8 9 9 9 9\n1 0 d\xFF 9 9 4 9 9 9 8 9 9 9 9\n");
    const std::string of_tree = "$moncl disk --root " + tree.root() + " --format ";
    const std::string of_board =
        "$moncl system,cpu,freq,mem,disk,part,net,irq,thermal,cooling,ion,nnu,"
        "fps,isp,pym,gdc,top,monitor 2>/dev/null --simulate-board --format ";
    const struct {
        const char* name;
        std::string command;
        std::string out;
    } cases[] = {
        {"CSV with names that need quotes",
         of_tree + "csv 0.01 2 | python3 -c 'import csv, sys; rows = list(csv.DictReader(open(0, "
                   "newline=\"\", "
                   "errors=\"replace\"), strict=True)); print(len(rows), rows[0][\"device\"], "
                   "rows[0][\"written_bytes\"], len(rows[3]))'",
         "4 a,b\"c 4096 7\n"},
        {"JSON with names that are not UTF-8",
         of_tree + "json 0.01 2 | python3 -c 'import json, sys; "
                   "print([json.loads(l)[\"rows\"][1][\"device\"] "
                   "for l in open(0, \"rb\")])'",
         "['d\xEF\xBF\xBD', 'd\xEF\xBF\xBD']\n"},
        {"the text form of Prometheus", of_board + "prometheus | promtool check metrics", ""},
        {"its names", of_tree + "prometheus | promtool check metrics", ""},
        // What is live has no time stamps; a store of blocks needs them.
        {"OpenMetrics",
         of_board + "openmetrics | sed '/^#/!s/$/ 1800000000/' >" + tree.root() +
             "/om && promtool tsdb "
             "create-blocks-from openmetrics " +
             tree.root() + "/om " + tree.root() + "/blocks >&2 && promtool tsdb list " +
             tree.root() + "/blocks | wc -l",
         "2\n"},
    };
    for (const auto& each : cases) {
        const shell run(each.command);
        EXPECT_EQ(run.status, 0) << each.name << ": " << run.err;
        EXPECT_EQ(run.out, each.out) << each.name;
    }
}
