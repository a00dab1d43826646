// The server's answers about processes, interrupts and counters, from trees of files.
#include "child_process.h"
#include "cpu_list.h"
#include "cpu_stat_manager.h"
#include "loopback_pair.h"
#include "manager_support.h"
#include "process_samples.h"
#include "running_server.h"
#include "sampler_asker.h"

#include <cmath>
#include <ctime>

namespace {
struct process_samplers : testing::Test {
    // A process: times in ticks, the start after boot; bytes stored.
    void put(int pid, const std::string& comm, long ticks = 1, long start = 100, long stored = 0,
             const char* priority = "20") const {
        const std::string folder = "/proc/" + std::to_string(pid);
        const std::string times = std::to_string(ticks - 1) + " 1 5 6 ";
        tree.write(folder + "/stat", std::to_string(pid) + " (" + comm +
                                         ") S 7 3 3 0 -1 64 1 2 3 4 " + times +
                                         line_of(priority, "0 1 0", start, "8192 25 9") +
                                         "1 1 1 1 1 0 0 0 0 0 0 0 17 3 0 0 0 0 0\n");
        tree.write(folder + "/io", "rchar: 9\nread_bytes: 0\nwrite_bytes: " +
                                       std::to_string(stored) + "\ncancelled_write_bytes: 5");
    }
    int ask(int sub, int pid) { return asker.ask(0xAE02, sub, native(pid)); }
    // The busiest processes since @p client asked before: "pid usage |" in order.
    std::string top(const std::string& uptime, std::uint8_t client = 1) {
        tree.write("/proc/uptime", uptime + " 1.0\n");
        EXPECT_EQ(asker.ask(0xAE02, 8, "", client), 0);
        EXPECT_EQ(asker.bytes.size(), sizeof(top_pid_info));
        table = asker.record<top_pid_info>(0);
        std::string text;
        for (int i = 0; i < table.pid_num; ++i)
            text += line_of(table.send_pid_info[i].pid, table.send_pid_info[i].process_usage) + "|";
        return text;
    }

    file_tree tree;
    sampler_asker asker{tree.root()};
    top_pid_info table{};
};

TEST_F(process_samplers, status_and_accounts) {
    auto word = [this](const std::string& name) {
        put(12, name);
        EXPECT_EQ(ask(3, 12), 0);
        return asker.bytes.substr(0, asker.bytes.find(" S "));
    };
    expect_each(word, {{"a blank", "two words", "12 (two_words)"},
                       {"parentheses", "a) (b", "12 (a)_(b)"},
                       {"no name", "", "12 ()"},
                       {"control characters", "tab\tline\n", "12 (tab_line_)"},
                       {"letters beyond ASCII", "\xc3\xa9t\x7f", "12 (\xc3\xa9t_)"}});
    EXPECT_EQ(asker.bytes.substr(asker.bytes.find("8192 ")),
              "8192 25 9 0 0 0 0 0 0 0 0 0 0 0 0 17 3 0 0 0 0 0\n")
        << "the addresses after the limit of 9 pages are hidden";
    EXPECT_EQ(ask(4, 12), 0);
    EXPECT_EQ(asker.bytes.substr(0, 9), "rchar: 9\n");
    tree.write("/proc/14/stat", "of a kernel without I/O accounts\n");
    EXPECT_EQ(ask(4, 14), -ENOENT);
    for (const int pid : {13, 0, -1})
        EXPECT_EQ(line_of(ask(3, pid), ask(4, pid)), line_of(-ESRCH, -ESRCH));
    for (const int sub : {10, 11, 12}) // events of a tree of files are not counted
        EXPECT_EQ(ask(sub, 0), -ENOTSUP) << sub;
}

TEST_F(process_samplers, rank_processes_over_their_lives_and_then_since_the_answer_before) {
    put(20, "slow", 50, 100, 1024 * 50);
    put(3, "quick", 400, 9900, 0, "-2000000");
    put(21, "slow", 50, 100);
    tree.write("/proc/22/comm", "ended before its files were read\n");
    tree.write("/proc/23/stat", "no status line\n");
    EXPECT_EQ(top("101.00"), "3 200 |20 0.5 |21 0.5 |"); // 4 s of 2
    const pid_msg row = table.send_pid_info[1];
    EXPECT_EQ(line_of(row.ppid, row.comm, row.state, row.priority, row.processor, row.io_per_second,
                      +row.rss),
              line_of("7 slow S 20 3 0.5", 25 * sysconf(_SC_PAGESIZE)));
    EXPECT_EQ(table.send_pid_info[0].priority, INT16_MIN);
    top("101.00", 2);
    put(3, "p", 500, 9900, 10240); // 50 %, 5 KB/s
    put(20, "p", 4, 100, 0);       // runs backwards
    put(21, "p", 20, 10200);       // another process of the same id
    put(5, "p", 75, 10250);
    EXPECT_EQ(top("103.00"), "3 50 |5 37.5 |21 10 |20 0 |");
    EXPECT_EQ(table.send_pid_info[0].io_per_second, 5);
    // Each client compares with its own last answer. A new owner of an id starts anew.
    put(3, "p", 600, 9900);
    EXPECT_EQ(top("105.00", 2).substr(0, 5), "3 50 ");
    asker.client_gone(1);
    EXPECT_EQ(top("105.00").substr(0, 6), "3 100 ");
    for (int pid = 1; pid <= 300; ++pid)
        put(pid, "p", 3 * pid);
    EXPECT_EQ(top("105.01", 3).substr(0, 4), "300 ");
    EXPECT_EQ(table.pid_num, 146);
    EXPECT_EQ(table.send_pid_info[145].pid, 155);
}

TEST_F(process_samplers, share_a_sample_for_a_tenth_of_a_second) {
    using clock = std::chrono::steady_clock;
    clock::time_point start;
    std::string first;
    std::string others;
    int uptime = 102;
    do { // until all three were asked in that time
        ++uptime;
        put(3, "p", 100);
        for (std::uint8_t client = 1; client <= 2; ++client)
            asker.client_gone(client);
        start = clock::now();
        first = top(std::to_string(uptime));
        put(3, "p", 200);
        others = top(std::to_string(uptime), 2) + top(std::to_string(uptime));
    } while (clock::now() - start >= std::chrono::milliseconds(100));
    EXPECT_EQ(others, first + first);
    EXPECT_EQ(top(std::to_string(uptime + 1)), "3 100 |");
}

// However the requests are delayed on a busy machine, three in a row have a pace at last.
TEST_F(process_samplers, take_samples_ahead_of_who_keeps_asking_and_stop_after_that) {
    put(3, "p");
    monsrv::process_samples samples(monsrv::host(tree.root()), std::chrono::seconds(0));
    std::shared_ptr<monsrv::process_sample> sample;
    std::size_t asked = 0;
    for (; samples.taken() <= asked && asked < 100; ++asked) {
        EXPECT_EQ(samples.get(1, sample), 0);
        usleep(150000);
    }
    EXPECT_LT(asked, 100U) << "none was taken ahead";
    std::size_t before = 0;
    for (int turn = 0; samples.taken() != before && turn < 20; ++turn) {
        before = samples.taken();
        usleep(500000);
    }
    EXPECT_EQ(samples.taken(), before) << "it does not stop";
}

TEST_F(process_samplers, say_what_is_unknown) {
    auto io = [this](const std::string& uptime) {
        top(uptime);
        return line_of(table.send_pid_info[0].io_per_second);
    };
    put(3, "p");
    std::filesystem::remove(tree.root() + "/proc/3/io");
    EXPECT_EQ(io("103.00"), line_of(NAN));
    EXPECT_TRUE(std::isnan(table.send_pid_info[0].net_band)) << "no sockets in a tree of files";
    EXPECT_EQ(table.send_pid_info[0].nnu_usage, 0);
    put(3, "p", 1, 100, 10240);
    EXPECT_EQ(io("104.00"), line_of(NAN)) << "nothing to compare with";
    put(3, "p", 1, 100, 20480);
    EXPECT_EQ(io("106.00"), line_of(5));
}

TEST_F(process_samplers, deal_out_the_load_of_the_simulated_cores) {
    const monsrv::simulated_board board(1);
    for (int pid = 1; pid <= 6; ++pid)
        put(pid, "p");
    sampler_asker with_board(tree.root(), board);
    const auto load = board.now().nnu_load;
    EXPECT_EQ(with_board.ask(0xAE02, 8), 0);
    table = with_board.record<top_pid_info>(0);
    float sum = 0;
    for (const pid_msg& row : table.send_pid_info)
        sum += row.nnu_usage;
    EXPECT_NEAR(sum, static_cast<float>(load[0] + load[1]) / 10, 2);
    EXPECT_EQ(table.send_pid_info[4].nnu_usage + table.send_pid_info[5].nnu_usage, 0);
}

// The answers are at least a tenth of a second apart, and at most the time that the test takes.
TEST(process_network, shows_in_the_table_of_busiest_processes) {
    if (*TEST_EMULATOR != '\0')
        GTEST_SKIP() << "no socket diagnostics";
    const loopback_pair pair;
    sampler_asker asker("/");
    auto bytes_per_second = [&asker] {
        // A process that has not run may be no row of the table, and samples are shared for a tenth
        // of a second.
        for (const auto until = std::clock() + CLOCKS_PER_SEC / 5; std::clock() < until;) {
        }
        EXPECT_EQ(asker.ask(0xAE02, 8), 0);
        const auto table = asker.record<top_pid_info>(0);
        const auto* end = table.send_pid_info + table.pid_num;
        const auto* own = std::find_if(table.send_pid_info, end,
                                       [](const pid_msg& row) { return row.pid == getpid(); });
        return own == end ? -1 : own->net_band * 1024;
    };
    using clock = std::chrono::steady_clock;
    const auto start = clock::now();
    EXPECT_TRUE(std::isnan(bytes_per_second())) << "nothing to compare with";
    ASSERT_TRUE(pair.carry_50000());
    const double rate = bytes_per_second();
    const std::chrono::duration<double> most = clock::now() - start;
    EXPECT_TRUE(rate * most.count() >= 99999 && rate * 0.1 <= 100001) << rate;
    EXPECT_EQ(bytes_per_second(), 0);
}
} // namespace

TEST(interrupt_sampler, sends_a_table_of_many_parts_whole_and_logs_once_what_does_not_fit) {
    const file_tree tree;
    const running_server server(tree.root());
    cpu_stat_manager manager(server.connect());
    const std::string line = "100:" + repeated(" 1000000000", 64) + " GICv3 7 Level dev\n";
    testing::internal::CaptureStderr();
    for (const int lines : {1, 300, 900, 900}) {
        tree.write("/proc/interrupts", "CPU0\n" + repeated(line, lines));
        const cout_capture printed;
        ASSERT_EQ(manager.get_interrupt(nullptr), 0);
        const int fitting = (50 * 8192 - 1 - 5) / static_cast<int>(line.size());
        EXPECT_TRUE(reinterpret_cast<const char*>(manager.joined_parts.data()) ==
                    "CPU0\n" + repeated(line, std::min(lines, fitting)));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "monsrv: the interrupt table exceeds an answer: " +
                  std::to_string(900 - (50 * 8192 - 1 - 5) / static_cast<int>(line.size())) +
                  " rows are left out, 0 of which never fired\n");
    close_at_once(*manager.client);
}
