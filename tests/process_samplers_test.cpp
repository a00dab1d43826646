// The server's answers about processes, interrupts and counters, from trees of files.
#include "child_process.h"
#include "cpu_list.h"
#include "cpu_stat_manager.h"
#include "log_capture.h"
#include "mon_cpu.h"
#include "running_server.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>

namespace {
using ::testing::ElementsAre;

struct fake_process {
    int pid;
    std::string comm = "worker";
    long ticks = 0;
    long start = 100; // ticks after boot
    long storage = 0; // bytes
    std::string priority = "20";
};

// Calls the handlers of a server that samples what lies below a folder.
struct asked_server {
    explicit asked_server(const std::string& root) : env(root) {
        monsrv::install_samplers(table, env);
    }
    int ask(int sub, int pid = 0, std::uint8_t client = 1) {
        unsigned char payload[4];
        u32_to_u8(static_cast<unsigned>(pid), payload);
        answer = {};
        return (*table.find(0xAE02, sub))({sub, client, payload, sizeof payload}, answer);
    }
    template<class Record>
    void take(Record& record) {
        ASSERT_EQ(answer.bytes.size(), sizeof record);
        std::memcpy(static_cast<void*>(&record), answer.bytes.data(), sizeof record);
    }

    monsrv::host env;
    monsrv::sampler_table table;
    monsrv::reply answer;
};

class process_samplers : public ::testing::Test {
protected:
    static std::string folder(int pid) { return "/proc/" + std::to_string(pid); }

    void put(const fake_process& p) const {
        const std::string times = std::to_string(p.ticks - 1) + " 1 ";
        tree.write(folder(p.pid) + "/stat",
                   std::to_string(p.pid) + " (" + p.comm + ") S 7 3 3 0 -1 64 1 2 3 4 " + times +
                       "5 6 " + p.priority + " 0 1 0 " + std::to_string(p.start) +
                       " 8192 25 9 1 1 1 1 1 0 0 0 0 0 0 0 17 3 0 0 0 0 0\n");
        tree.write(folder(p.pid) + "/io",
                   "rchar: 9\nread_bytes: 0\nwrite_bytes: " + std::to_string(p.storage) +
                       "\ncancelled_write_bytes: 5\n");
    }
    void set_uptime(const std::string& seconds) const {
        tree.write("/proc/uptime", seconds + " 1.0\n");
    }

    std::string text() const { return {server.answer.bytes.begin(), server.answer.bytes.end()}; }

    // Asks for the busiest processes: their ids in order, the rows in `busiest`.
    std::vector<int> top(std::uint8_t client = 1) {
        EXPECT_EQ(server.ask(8, 0, client), 0);
        server.take(busiest);
        std::vector<int> pids;
        for (int i = 0; i < busiest.pid_num; ++i)
            pids.push_back(busiest.send_pid_info[i].pid);
        return pids;
    }
    float usage(int row) const { return busiest.send_pid_info[row].process_usage; }

    file_tree tree;
    asked_server server{tree.root()};
    top_pid_info busiest;
};

TEST_F(process_samplers, keep_the_command_name_one_word) {
    const std::pair<const char*, const char*> names[] = {{"two words", "(two_words)"},
                                                         {"a) (b", "(a)_(b)"},
                                                         {"tab\tline\n", "(tab_line_)"},
                                                         {"", "()"},
                                                         {"\xc3\xa9t\x7f", "(\xc3\xa9t_)"}};
    for (const auto& [name, word] : names) {
        put({12, name});
        ASSERT_EQ(server.ask(3, 12), 0);
        EXPECT_EQ(text().substr(0, text().find(" S ")), std::string("12 ") + word);
    }
    EXPECT_EQ(server.ask(4, 12), 0);
    EXPECT_EQ(text().find("rchar: 9\n"), 0U);
}

TEST_F(process_samplers, say_that_a_process_does_not_exist) {
    tree.write("/proc/14/stat", "of a kernel without I/O accounts\n");
    EXPECT_EQ(server.ask(4, 14), -ENOENT);
    for (const int sub : {3, 4})
        for (const int pid : {13, 0, -1})
            EXPECT_EQ(server.ask(sub, pid), -ESRCH) << sub << " " << pid;
}

TEST_F(process_samplers, rank_processes_over_their_lives_at_first) {
    set_uptime("101.00");
    put({20, "slow", 50, 100, 1024 * 50});
    put({3, "quick", 400, 9900, 0, "-2000000"});
    put({21, "slow", 50, 100});
    tree.write("/proc/22/comm", "ended before its files were read\n");
    tree.write("/proc/23/stat", "no status line\n");
    EXPECT_THAT(top(), ElementsAre(3, 20, 21));
    EXPECT_FLOAT_EQ(usage(0), 200); // 4 s of 2
    EXPECT_FLOAT_EQ(usage(1), 0.5F);
    const pid_msg& row = busiest.send_pid_info[1];
    EXPECT_FLOAT_EQ(row.io_per_second, 0.5F);
    EXPECT_STREQ(row.comm, "slow");
    const std::int64_t rss = row.rss;
    EXPECT_EQ(rss, 25 * sysconf(_SC_PAGESIZE));
    EXPECT_THAT((std::vector<int>{row.ppid, row.state, row.priority, row.processor}),
                ElementsAre(7, 'S', 20, 3));
    EXPECT_EQ(busiest.send_pid_info[0].priority, INT16_MIN);
}

TEST_F(process_samplers, rank_processes_since_the_clients_previous_answer) {
    set_uptime("1000.00");
    for (const int pid : {1, 2, 3, 4})
        put({pid, "p", 5000, 100, 4096});
    top(1);
    top(2);
    set_uptime("1002.00");
    put({1, "p", 5100, 100, 4096 + 10240}); // 50 %, 5 KB/s
    put({2, "p", 4000, 100, 0});            // runs backwards
    put({3, "p", 20, 100100});              // another process of the same id
    std::filesystem::remove_all(tree.root() + folder(4));
    put({5, "p", 150, 100050});
    EXPECT_THAT(top(1), ElementsAre(5, 1, 3, 2));
    EXPECT_THAT((std::vector<float>{usage(0), usage(1), usage(2), usage(3)}),
                ElementsAre(75, 50, 10, 0));
    EXPECT_FLOAT_EQ(busiest.send_pid_info[1].io_per_second, 5);
    // Nobody's time is another's, and who comes back under an id that was given back is new.
    set_uptime("1004.00");
    put({1, "p", 5200, 100});
    top(2);
    EXPECT_FLOAT_EQ(usage(0), 50);
    server.table.client_gone(1);
    top(1);
    EXPECT_FLOAT_EQ(usage(0), 150 / 3.5F); // process 5, of its life
}

TEST_F(process_samplers, send_the_146_busiest_of_many) {
    set_uptime("100.00");
    for (int pid = 1; pid <= 300; ++pid)
        put({pid, "p", pid});
    const std::vector<int> pids = top();
    ASSERT_EQ(pids.size(), 146U);
    EXPECT_EQ(pids.front(), 300);
    EXPECT_EQ(pids.back(), 155);
}

TEST_F(process_samplers, do_not_count_events_of_a_tree_of_files) {
    for (const int sub : {10, 11, 12})
        EXPECT_EQ(server.ask(sub), -ENOTSUP) << sub;
}

TEST(performance_counters, count_for_each_client_until_the_last_has_switched_off) {
    asked_server server("/");
    EXPECT_EQ(server.ask(11, 0, 1), -ENODATA);
    if (const int code = server.ask(10, 0, 1); code < 0) {
        EXPECT_EQ(server.ask(11, 0, 1), -ENODATA);
        GTEST_SKIP() << "no counters here: " << std::strerror(-code);
    }
    for (int i = 0; i < 100; ++i)
        std::this_thread::sleep_for(std::chrono::microseconds(100)); // switches contexts
    EXPECT_EQ(server.ask(10, 0, 2), 0);
    EXPECT_EQ(server.ask(11, 0, 2), 0);
    perf_counters later;
    server.take(later);
    EXPECT_EQ(server.ask(11, 0, 1), 0);
    perf_counters all;
    server.take(all);
    EXPECT_GE(all.cs, later.cs + 50) << "the second client counts from 0";
    EXPECT_EQ(server.ask(12, 0, 1), 0);
    EXPECT_EQ(server.ask(11, 0, 1), -ENODATA);
    EXPECT_EQ(server.ask(11, 0, 2), 0);
    server.table.client_gone(2);
    EXPECT_EQ(server.ask(11, 0, 2), -ENODATA);
}

TEST(interrupt_sampler, sends_a_table_of_many_parts_whole) {
    std::string line = ":";
    std::string headings = "    ";
    for (int cpu = 0; cpu < 64; ++cpu) {
        headings += "       CPU" + std::to_string(cpu);
        line += " " + std::to_string(1000000000 + cpu);
    }
    const file_tree tree;
    const running_server server(tree.root());
    cpu_stat_manager manager(server.connect());
    for (const int lines : {1, 300, 900}) {
        std::string table = headings + "\n";
        for (int i = 0; i < lines; ++i)
            table +=
                std::to_string(100 + i) + line + " GICv3 7 Level dev" + std::to_string(i) + "\n";
        tree.write("/proc/interrupts", table);
        const cout_capture printed;
        ASSERT_EQ(manager.get_interrupt(nullptr), 0);
        const std::string text = reinterpret_cast<const char*>(manager.joined_parts.data());
        if (table.size() < 50 * 8192) {
            EXPECT_TRUE(text == table) << lines;
            EXPECT_EQ(manager.int_parser->interrupts->size(), static_cast<std::size_t>(lines));
        } else { // whole lines, as many as fit
            EXPECT_TRUE(table.compare(0, text.size(), text) == 0 && text.back() == '\n');
            EXPECT_GT(text.size() + 800, 50U * 8192);
        }
    }
}

TEST(cpu_list, reads_ranges) {
    EXPECT_THAT(monsrv::read_cpu_list("0-2,5\n"), ElementsAre(0, 1, 2, 5));
    EXPECT_THAT(monsrv::read_cpu_list("3\n"), ElementsAre(3));
    EXPECT_THAT(monsrv::read_cpu_list("1,x,2"), ElementsAre(1));
    EXPECT_EQ(monsrv::read_cpu_list("0-2147483647").size(), 8192U);
    EXPECT_TRUE(monsrv::read_cpu_list("\n").empty());
}

} // namespace
