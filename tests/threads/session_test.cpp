// Runs of the console over servers that lose devices, refuse, fall silent and come back.
#include "console_run.h"
#include "manager_support.h"
#include "mon_cpu.h"
#include "mon_peri.h"
#include "request_numbers.h"

#include <atomic>

namespace {
// One answer each, as servers give them.
answer_packets refused(int code) {
    return {error_packet(0, code)};
}
answer_packets text(int sub_command, const std::string& answer) {
    return {packet(sub_command, answer)};
}
const answer_packets silence;

struct disk {
    const char* name;
    std::uint64_t read_kb;
};
answer_packets disks(std::initializer_list<disk> all) {
    std::string bytes(1, static_cast<char>(all.size()));
    for (const disk& each : all) {
        block_stat record{};
        std::strcpy(record.name, each.name);
        record.rd_kb = each.read_kb;
        bytes += native(record);
    }
    return {packet(peripheral_request::block_devices, bytes)};
}

// The status of process 7 as it was after @p ticks of work, started @p start ticks after boot.
answer_packets process(const std::string& name, int ticks, int start) {
    return {packet(cpu_request::process_status, "7 (" + name + ") S 1 7 7 0 -1 0 0 0 0 0 " +
                                                    std::to_string(ticks) + " 0 0 0 20 0 1 0 " +
                                                    std::to_string(start) + " 4096 1" +
                                                    repeated(" 0", 24))};
}
const answer_packets no_processes{packet(cpu_request::busiest_processes, "")};
const answer_packets no_io = text(cpu_request::process_io, "read_bytes: 0\nwrite_bytes: 0\n");

// Tables of disks without the columns of what is written.
std::string disk_table(const std::string& rows) {
    return "Device   read written rd_kB/s wr_kB/s\n" + rows;
}
} // namespace

// The first answer about disks and processes only serves to compare with.
TEST(session, shows_what_is_known_and_says_what_is_not) {
    const struct {
        const char* name;
        const char* subject;
        std::vector<answer_packets> answers;
        std::string shown; ///< as on a terminal, and a status that is not 0
        long reports = 2;
        double step = 1;
        std::vector<std::string> names = {};
    } cases[] = {
        {"refused once, then well again",
         "disk",
         {disks({{"sda", 0}}), refused(-EIO), disks({{"sda", 100}}), disks({{"sda", 110}})},
         disk_table("sda    100.0K    0.0B       -       -\n"
                    "sda    110.0K    0.0B   10.00    0.00\n") +
             "moncl: disk: the server answers: Input/output error\n",
         3},
        {"refused to the end",
         "disk",
         {disks({{"sda", 0}}), refused(-EIO), refused(-EIO)},
         "moncl: disk: the server answers: Input/output error\n"
         "status 1\n"},
        {"the server falls silent and comes back",
         "disk",
         {disks({{"sda", 0}}), silence, disks({{"sda", 100}}), disks({{"sda", 110}})},
         disk_table("sda    100.0K    0.0B       -       -\n"
                    "sda    110.0K    0.0B   10.00    0.00\n") +
             "moncl: no answer from board within 1 s: is monsrv running there and is the port "
             "open?\n"
             "moncl: board is back\n",
         3},
        {"an answer that cannot be decoded",
         "mem",
         {text(peripheral_request::memory, "MemTotal: 2048 kB\n"),
          text(peripheral_request::memory, "MemTotal: x")},
         "total available %used free buffers cached slab file anon\n"
         " 2.0M         -     -    -    0.0B      -    -    -    -\n"
         "moncl: cannot read all of an answer: parse_meminfo failed:stol\n"
         "status 1\n"},
        {"names, of which one nobody has",
         "disk",
         {disks({{"sda", 0}, {"sdb", 0}}), disks({{"sda", 0}, {"sdb", 1}})},
         "Device read written rd_kB/s wr_kB/s\nsdb    1.0K    0.0B    1.00    0.00\n"
         "moncl: the server has no figures of nosuch\n"
         "status 1\n",
         1,
         1,
         {"sdb", "nosuch"}},
        {"a label that is a number, asked for by name",
         "gdc",
         {text(video_request::gdc_rates,
               "gdc0 pipe 0 output rate 30\ngdc0 pipe 3 output rate 15\n")},
         "Pipe Instance out_fps\n   3 gdc0          15\n",
         1,
         1,
         {"3"}},
        {"a name that would steer a terminal",
         "disk",
         {disks({{"\033[2J", 0}}), disks({{"\033[2J", 0}})},
         "Device  read written rd_kB/s wr_kB/s\n\\x1b[2J 0.0B    0.0B    0.00    0.00\n",
         1},
        {"a process id is taken over, and the process ends",
         "proc",
         {no_processes, process("first", 10, 100), no_io, process("first", 60, 100), no_io,
          process("second", 70, 900), no_io, refused(-ESRCH)},
         "PID COMMAND S PPID CPU PRI thr RSS  VSZ %user %system  %CPU rd_kB/s wr_kB/s minflt/s "
         "majflt/s\n"
         "  7 first   S    1   0  20   1   - 4.0K 50.00    0.00 50.00    0.00    0.00     0.00     "
         "0.00\n"
         "  7 second  S    1   0  20   1   - 4.0K     -       -     -       -       -        -     "
         "   -\n"
         "moncl: process id 7 was taken over by another process, second, started 9 s after boot\n"
         "moncl: process 7 has ended\n",
         9},
    };
    for (const auto& each : cases) {
        scripted_server server;
        for (const answer_packets& answer : each.answers)
            server.next(answer);
        console_run run({server.port()}, {each.subject});
        run.chosen.pids = {7};
        run.chosen.names = each.names;
        run.reports = each.reports;
        run.step = each.step;
        run.run();
        EXPECT_EQ(run.out + run.err + (run.well ? "" : "status 1\n"), each.shown) << each.name;
    }
}

TEST(session, ends_a_run_with_its_averages) {
    scripted_server server;
    for (const auto& answer : {disks({{"sda", 0}}), disks({{"sda", 100}}), disks({{"sda", 400}})})
        server.next(answer);
    console_run run({server.port()}, {"disk"});
    run.reports = 2;
    run.averages = true;
    run.run();
    EXPECT_EQ(run.out, disk_table("sda    100.0K    0.0B  100.00    0.00\n"
                                  "sda    400.0K    0.0B  300.00    0.00\n\n"
                                  "         Device rd_kB/s wr_kB/s\n"
                                  "Average: sda     200.00    0.00\n"));
}

TEST(session, fits_its_table_to_the_terminal) {
    scripted_server server;
    server.answer([](int, int, const std::string&) { return disks({{"sda", 1}, {"sdb", 2}}); });
    console_run run({server.port()}, {"disk"});
    run.options.columns = 32;
    run.options.lines = 8;
    run.options.time_column = true;
    run.reports = 3;
    setenv("TZ", "UTC", 1);
    run.run();
    const std::string heading = "Time     Device rd_kB/s wr_kB/s\n(no room for read, written)\n";
    EXPECT_EQ(run.out, heading +
                           "08:00:02 sda       0.00    0.00\n"
                           "08:00:02 sdb       0.00    0.00\n\n"
                           "08:00:03 sda       0.00    0.00\n"
                           "08:00:03 sdb       0.00    0.00\n\n" +
                           heading +
                           "08:00:04 sda       0.00    0.00\n"
                           "08:00:04 sdb       0.00    0.00\n");
}

// Each server waits until the other was asked; at the second report one is silent.
TEST(session, asks_servers_side_by_side) {
    std::atomic<int> asked{0}, other_asked{0};
    const auto wait_for = [](const std::atomic<int>& count, int least) {
        for (int turn = 0; count < least && turn < 4000; ++turn)
            usleep(1000);
    };
    scripted_server server, other;
    server.answer([&](int, int, const std::string&) {
        if (++asked == 2)
            wait_for(other_asked, 1);
        return disks({{"a,b\"c", 1}});
    });
    other.answer([&](int, int, const std::string&) {
        ++other_asked;
        wait_for(asked, 2);
        return other_asked > 1 ? silence : disks({{"sdb", 2}});
    });
    console_run run({server.port(), other.port()}, {"disk"}, "csv");
    run.run();
    EXPECT_FALSE(run.well) << "one was away at the end";
    EXPECT_EQ(run.err, "moncl: no answer from other within 1 s: is monsrv running there and is the "
                       "port open?\n");
    EXPECT_EQ(run.out, "time,host,device,read_bytes,written_bytes,read_bytes_per_second,"
                       "written_bytes_per_second\r\n"
                       "2027-01-15T08:00:02.000Z,board,\"a,b\"\"c\",1024,0,0,0\r\n");
}
