// irq, top, proc and perf against the real kernel, and against servers that misbehave.
#include "child_process.h"
#include "mon_cpu.h"
#include "process_files.h"
#include "scripted_server.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <gmock/gmock.h>
#include <limits>
#include <pty.h>
#include <regex>
#include <sys/wait.h>
#include <unistd.h>

namespace {
using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string at(int port) {
    return "127.0.0.1:" + std::to_string(port);
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

double figure(const std::string& text, const std::string& pattern) {
    std::smatch found;
    if (!std::regex_search(text, found, std::regex(pattern))) {
        ADD_FAILURE() << "no " << pattern << " in: " << text;
        return 0;
    }
    return std::stod(found[1]);
}

TEST(process_commands, show_what_a_busy_writer_does) {
    const file_tree files;
    const child_process busy(
        {"sh", "-c", "while :; do echo text; done >" + files.root() + "/growing"});
    const std::string pid = std::to_string(busy.pid());
    const totals first(busy.pid());
    child_process proc({MONCL_PROGRAM, "proc", pid, "999999999"});
    EXPECT_EQ(proc.wait(), 1);
    const totals second(busy.pid());
    EXPECT_THAT(proc.err, HasSubstr("moncl: process 999999999: No such process\n"));
    expect_usage_between(figure(proc.out, "pid:" + pid + ", usage:([0-9.]+)%"), first, second);
    const double stored = second.stored_kib - first.stored_kib; // 0 where files are in memory
    const double rate = figure(proc.out, "write/s:([0-9.e+]+)");
    EXPECT_LE(rate, stored / shortest);
    EXPECT_GE(rate, stored / 20);

    child_process top({MONCL_PROGRAM, "top"});
    EXPECT_EQ(top.wait(), 0);
    const totals third(busy.pid());
    expect_usage_between(figure(top.out, "\n +" + pid + " +\\d+ +\\d+ +([0-9.]+)"), second, third);
}

TEST(process_commands, end_with_the_last_process_watched) {
    auto ending = std::make_unique<child_process>(std::vector<std::string>{"sleep", "60"});
    child_process proc({MONCL_PROGRAM, "proc", std::to_string(ending->pid()), "-i", "0.1"});
    proc.read_until("state:");
    ending.reset();
    EXPECT_EQ(proc.wait(), 1);
}

TEST(process_commands, show_the_kernels_interrupts) {
    child_process irq({MONCL_PROGRAM, "irq"});
    EXPECT_EQ(irq.wait(), 0);
    EXPECT_THAT(irq.out, HasSubstr("CPU0"));
    EXPECT_GT(std::count(irq.out.begin(), irq.out.end(), '\n'), 1);
}

// Figures and names no server of ours would send.
TEST(process_commands, show_a_hostile_table_of_processes_as_text) {
    scripted_server server;
    server.answer([](int, int sub, const std::string&) -> answer_packets {
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
    child_process top({MONCL_PROGRAM, "top", "0.02", "1", "--connect", at(server.port())});
    EXPECT_EQ(top.wait(), 0);
    EXPECT_EQ(std::count(top.out.begin(), top.out.end(), '\n'), 147);
    EXPECT_THAT(top.out.substr(top.out.find('\n'), 95), HasSubstr(" ?[2J?abcdefghijk\n"));
    EXPECT_EQ(top.out.find('\033'), top.out.npos);
}

// What a terminal of 65 x 8 characters is sent until SIGTERM.
std::string run_on_terminal(std::vector<const char*> command) {
    winsize window{8, 65, 0, 0};
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
    const std::string headings =
        "    PID    PPID CPU    %CPU   IO:KB/s Net:KB/s   %NNU     RSS  PR";
    const std::size_t start = sent.find("\033[?1049h\033[?25l\033[H" + headings + "\033[K");
    ASSERT_NE(start, sent.npos) << sent;
    const std::string page = sent.substr(start, sent.find("\033[J") - start);
    EXPECT_EQ(std::count(page.begin(), page.end(), '\n'), 7);
    EXPECT_THAT(sent, HasSubstr("\033[?25h\033[?1049l" + headings + "\r\n"));
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
