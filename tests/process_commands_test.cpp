// irq, top, proc and perf against the real kernel, and against servers that misbehave.
#include "child_process.h"
#include "cpu_stat_manager.h"
#include "process_files.h"
#include "running_server.h"
#include "scripted_server.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <limits>
#include <pty.h>
#include <regex>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {
using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string at(int port) {
    return "127.0.0.1:" + std::to_string(port);
}

// The running totals of a process and the time they are of.
struct totals {
    explicit totals(int pid) {
        const monsrv::host env("/");
        std::string text;
        monsrv::process_status status;
        if (monsrv::read_process_stat(env, pid, text) == 0 &&
            monsrv::parse_process_stat(text, status))
            cpu_seconds =
                static_cast<double>(status.run_ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
        if (monsrv::read_process_io(env, pid, text) == 0)
            storage_kib = static_cast<double>(monsrv::storage_bytes(text)) / 1024;
    }
    double cpu_seconds = 0;
    double storage_kib = 0;
    std::chrono::steady_clock::time_point when = std::chrono::steady_clock::now();
};

// The shortest time between two samples 1 s apart of which a busy machine delays the first.
constexpr double shortest = 0.5;

// What a program that measured between two readings of our own may say: however busy the machine
// is, the process used what it used between the readings.
void expect_usage_between(double usage, const totals& before, const totals& after) {
    const double all = std::chrono::duration<double>(after.when - before.when).count();
    const double used = after.cpu_seconds - before.cpu_seconds;
    EXPECT_LE(usage, std::min(115.0, (used + 0.05) / shortest * 100));
    EXPECT_GE(usage, std::max(1.0, (1 - (all - used + 0.05) / shortest) * 100));
}

double figure(const std::string& text, const std::string& pattern) {
    std::smatch found;
    if (!std::regex_search(text, found, std::regex(pattern))) {
        ADD_FAILURE() << "no " << pattern << " in: " << text;
        return 0;
    }
    return std::stod(found[1]);
}

TEST(process_commands, show_a_busy_process) {
    const running_server server;
    const child_process busy({"sh", "-c", "while :; do :; done"});
    const std::string pid = std::to_string(busy.pid());
    const totals first(busy.pid());
    child_process proc({MONCL_PROGRAM, "proc", "--connect", at(server.port()), pid, "999999999"});
    EXPECT_EQ(proc.wait(), 1);
    const totals second(busy.pid());
    EXPECT_EQ(proc.err, "moncl: process 999999999: No such process\n");
    expect_usage_between(figure(proc.out, "pid:" + pid + ", usage:([0-9.]+)%"), first, second);

    child_process top({MONCL_PROGRAM, "top", "--connect", at(server.port())});
    EXPECT_EQ(top.wait(), 0);
    const totals third(busy.pid());
    expect_usage_between(figure(top.out, "\n +" + pid + " +\\d+ +\\d+ +([0-9.]+)"), second, third);
}

TEST(process_commands, show_the_rate_of_a_writing_process) {
    const running_server server;
    const file_tree files;
    std::atomic<bool> writing{true};
    std::thread writer([&] {
        std::ofstream file(files.root() + "/growing");
        const std::string block(1 << 16, 'x');
        for (int i = 0; i < 1000 && writing; ++i) {
            file << block << std::flush;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    const totals before(getpid());
    child_process proc(
        {MONCL_PROGRAM, "proc", "--connect", at(server.port()), std::to_string(getpid())});
    EXPECT_EQ(proc.wait(), 0);
    const totals after(getpid());
    writing = false;
    writer.join();
    const double written = after.storage_kib - before.storage_kib;
    if (written == 0)
        GTEST_SKIP() << "files in memory: nothing reaches storage";
    const double rate = figure(proc.out, "write/s:([0-9.e+]+)");
    EXPECT_LE(rate, written / shortest);
    EXPECT_GE(rate, written / std::chrono::duration<double>(after.when - before.when).count() / 20);
}

TEST(process_commands, end_with_the_last_process_watched) {
    auto ending = std::make_unique<child_process>(std::vector<std::string>{"sleep", "60"});
    child_process proc({MONCL_PROGRAM, "proc", std::to_string(ending->pid()), "-i", "0.1"});
    proc.read_until("state:");
    ending.reset();
    EXPECT_EQ(proc.wait(), 1);
    EXPECT_THAT(proc.err, HasSubstr("No such process"));
}

TEST(process_commands, show_the_kernels_interrupts) {
    child_process irq({MONCL_PROGRAM, "irq", "0.1", "2"});
    EXPECT_EQ(irq.wait(), 0);
    const std::string heading = irq.out.substr(0, irq.out.find('\n') + 1);
    EXPECT_THAT(heading, HasSubstr("CPU0"));
    EXPECT_NE(irq.out.find(heading, 1), irq.out.npos) << "two tables";
}

// Rows no server of ours would send.
TEST(process_commands, show_a_hostile_table_of_processes_as_text) {
    scripted_server server;
    server.answer([](int, int sub, const std::string&) -> answer_packets {
        top_pid_info table{};
        table.pid_num = 1000000;
        for (int i = 0; i < top_pid_rows; ++i) {
            pid_msg& row = table.send_pid_info[i];
            row.pid = i;
            row.process_usage =
                i % 3 == 0 ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(i);
            std::memcpy(row.comm, "\033[2J\nabcdefghijk", sizeof row.comm);
            row.rss = -1;
        }
        return {packet(sub, {reinterpret_cast<const char*>(&table), sizeof table})};
    });
    child_process top({MONCL_PROGRAM, "top", "0.02", "1", "--connect", at(server.port())});
    EXPECT_EQ(top.wait(), 0);
    std::istringstream lines(top.out);
    std::vector<std::string> rows;
    for (std::string line; std::getline(lines, line);)
        rows.push_back(line);
    ASSERT_EQ(rows.size(), 147U);
    EXPECT_EQ(rows[1].substr(0, 7), "    145");
    EXPECT_EQ(rows[1].substr(rows[1].size() - 16), "?[2J?abcdefghijk");
    EXPECT_EQ(top.out.find('\033'), top.out.npos);
}

// What a terminal of 60 x 8 characters is sent until SIGTERM.
std::string run_on_terminal(std::vector<const char*> command) {
    winsize window{8, 60, 0, 0};
    int terminal = -1;
    const pid_t pid = forkpty(&terminal, nullptr, nullptr, &window);
    if (pid == 0) {
        command.push_back(nullptr);
        execv(command[0], const_cast<char**>(command.data()));
        _exit(127);
    }
    std::string sent;
    char part[4096];
    for (ssize_t n; (n = read(terminal, part, sizeof part)) > 0;) {
        const bool second_page = sent.find("\033[J") != sent.npos;
        sent.append(part, static_cast<std::size_t>(n));
        if (second_page)
            kill(pid, SIGTERM);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
    close(terminal);
    return sent;
}

TEST(process_commands, redraw_the_top_table_in_a_window) {
    const std::string sent = run_on_terminal({MONCL_PROGRAM, "top", "-i", "0.1"});
    const std::string enter = "\033[?1049h\033[?25l\033[H";
    const std::string leave = "\033[?25h\033[?1049l";
    const std::size_t start = sent.find(enter);
    const std::size_t end = sent.find(leave);
    ASSERT_TRUE(start != sent.npos && end != sent.npos) << sent;
    const std::string page = sent.substr(start + enter.size(), sent.find("\033[J") - start);
    EXPECT_EQ(page.find("    PID    PPID"), 0U);
    EXPECT_EQ(std::count(page.begin(), page.end(), '\n'), 7);
    EXPECT_THAT(sent.substr(end + leave.size()), HasSubstr("    PID    PPID"));
    for (std::size_t at = 0, next; (next = page.find("\033[K", at)) != page.npos; at = next + 5)
        EXPECT_LE(next - at, 60U);
}

TEST(performance_counters, count_for_each_client_until_the_last_has_switched_off) {
    monsrv::host env("/");
    monsrv::sampler_table table;
    monsrv::install_samplers(table, env);
    perf_counters counted;
    auto ask = [&](int sub, std::uint8_t client) {
        monsrv::reply answer;
        const int code = (*table.find(0xAE02, sub))({sub, client, nullptr, 0}, answer);
        if (sub == 11 && code == 0 && answer.bytes.size() == sizeof counted)
            std::memcpy(&counted, answer.bytes.data(), sizeof counted);
        return code;
    };
    EXPECT_EQ(ask(11, 1), -ENODATA);
    if (const int code = ask(10, 1); code < 0) {
        EXPECT_EQ(ask(11, 1), -ENODATA);
        GTEST_SKIP() << "no counters here: " << std::strerror(-code);
    }
    for (int i = 0; i < 100; ++i)
        std::this_thread::sleep_for(std::chrono::microseconds(100)); // switches contexts
    EXPECT_EQ(ask(11, 1), 0);
    const std::uint64_t switches = counted.cs;
    EXPECT_GE(switches, 50U);
    EXPECT_EQ(ask(10, 2), 0);
    EXPECT_EQ(ask(11, 2), 0);
    EXPECT_LT(counted.cs, switches) << "starts from 0 for the second client";
    EXPECT_EQ(ask(12, 1), 0);
    EXPECT_EQ(ask(11, 1), -ENODATA);
    EXPECT_EQ(ask(11, 2), 0);
    table.client_gone(2);
    EXPECT_EQ(ask(11, 2), -ENODATA);
}

// A server restarted unnoticed does not count, and one that was silent has forgotten.
TEST(process_commands, switch_counting_on_again_after_a_restart) {
    scripted_server server;
    int reads = 0;
    server.answer([&reads](int, int sub, const std::string&) -> answer_packets {
        if (sub == 11 && ++reads == 1)
            return {error_packet(sub, -ENODATA)};
        if (sub == 11 && reads == 2)
            return {};
        return {packet(sub, std::string(sub == 11 ? sizeof(perf_counters) : 0, '\1'))};
    });
    child_process perf({MONCL_PROGRAM, "perf", "0.1", "5", "--connect", at(server.port())});
    EXPECT_EQ(perf.wait(), 0);
    std::vector<int> subs;
    for (const std::string& request : server.take_requests())
        subs.push_back(header_of(request).sub_command);
    EXPECT_THAT(subs, ElementsAre(10, 11, 10, 11, 10, 11, 10, 11, 10, 8, 12));
    EXPECT_THAT(perf.out, HasSubstr("IPC:                    1.00\n"));
}

} // namespace
