// The command line: what words and options come to, and what is refused.
#include "command_line.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>

namespace {
struct outcome {
    tools::invocation called;
    std::string out;
    std::string err;
};

outcome read(const std::string& line) {
    std::istringstream words(line);
    std::ostringstream out, err;
    auto called =
        tools::read_command_line({std::istream_iterator<std::string>(words), {}}, out, err);
    return {called, out.str(), err.str()};
}

template<class List>
std::string joined(const List& list) {
    std::ostringstream text;
    for (const auto& each : list)
        text << (text.tellp() > 0 ? "," : "") << each;
    return text.str();
}

// What is to be done, such as "cpu,mem -P 0 every 2 s 5 times from board:1"; a default is left out.
std::string summary_of(const tools::invocation& called) {
    std::ostringstream text;
    for (const tools::subject* each : called.subjects)
        text << (each == called.subjects.front() ? "" : ",") << each->name;
    if (called.summary)
        text.str("everything");
    text.seekp(0, std::ios::end);
    const tools::selection& chosen = called.chosen;
    const auto add = [&text](const char* what, const std::string& value) {
        if (!value.empty())
            text << " " << what << " " << value;
    };
    add("names", joined(chosen.names));
    add("cpus", joined(chosen.cpus) + (chosen.every_cpu ? "+each" : ""));
    add("pids", joined(chosen.pids));
    add("rows", chosen.rows == 0 ? "" : std::to_string(chosen.rows));
    if (called.when.interval > 0)
        text << " every " << called.when.interval;
    if (called.when.count > 0)
        text << " times " << called.when.count;
    add("as", called.form == "table" ? "" : called.form);
    add("in", called.library_report ? "the library's words" : "");
    for (const auto& server : called.servers)
        add("from", server.text());
    add("seed", called.simulate_board ? std::to_string(called.seed) : "");
    return text.str();
}
} // namespace

TEST(command_line, says_what_is_to_be_done) {
    const struct {
        const char* line;
        const char* done;
    } cases[] = {
        {"", "everything"},
        {"2 3", "everything every 2 times 3"},
        {"cpu -i 0.25 --count=2", "cpu every 0.25 times 2"},
        {"cpu,mem,cpu 1 --json", "cpu,mem every 1 as json"},
        {"disk sda sdb 1", "disk names sda,sdb every 1"},
        {"irq --only 35 eth0", "irq names 35,eth0"},
        {"cpu -P 0,3 --cpu all", "cpu cpus 0,3,all"},
        {"irq -P ALL", "irq cpus +each"},
        {"proc,pnet -p 1,22 --pid 3", "proc,pnet pids 1,22,3"},
        {"top --rows 5 --format csv", "top rows 5 as csv"},
        {"cpu --report library", "cpu in the library's words"},
        {"--simulate-board --seed 4294967295 nnu", "nnu seed 4294967295"},
        {"--connect board mem", "mem from board:5757"},
        {"mem 1 --connect 10.0.0.7:1 --connect b:2", "mem every 1 from 10.0.0.7:1 from b:2"},
        {"mem --connect [::1]:9000 --connect [fe80::1%eth0]",
         "mem from [::1]:9000 from [fe80::1%eth0]:5757"},
        {"mem --connect ::1", "mem from [::1]:5757"},
    };
    for (const auto& each : cases) {
        const outcome got = read(each.line);
        EXPECT_FALSE(got.called.ends) << each.line << ": " << got.err;
        EXPECT_EQ(summary_of(got.called), each.done) << each.line;
    }
    setenv("MONCL_CONNECT", " a [::1]:9 ", 1);
    EXPECT_EQ(summary_of(read("cpu").called), "cpu from a:5757 from [::1]:9");
    EXPECT_EQ(summary_of(read("cpu --connect b").called), "cpu from b:5757");
    EXPECT_EQ(summary_of(read("cpu --simulate-board").called), "cpu seed 1");
    unsetenv("MONCL_CONNECT");
}

TEST(command_line, refuses_in_one_line) {
    const struct {
        const char* line;
        const char* message;
    } cases[] = {
        {"nosuch 1", "there is no subject nosuch; see moncl --help"},
        {"cpu 0", "an interval is 0.001 to 86400 seconds, not 0"},
        {"cpu -1", "not -1"},
        {"cpu nan", "an interval is 0.001 to 86400 seconds, not nan"},
        {"cpu -i 1x", "an interval is 0.001 to 86400 seconds, not 1x"},
        {"cpu 1 0", "a count is a whole number from 1 on, not 0"},
        {"cpu 1 2 3", "what is 3 after the count?"},
        {"cpu,mem sda", "names choose rows of one subject: name that alone"},
        {"proc 1", "which processes? Name them with -p PID"},
        {"proc -p 0", "--pid"},
        {"cpu -P x", "-P takes numbers of CPUs, all or ALL, not x"},
        {"cpu,mem --format csv", "the columns of CSV are those of one subject: name one"},
        {"cpu --format xml", "--format"},
        {"cpu --json --format csv", "--format excludes --json"},
        {"freq --report library", "the library has no report of freq"},
        {"cpu --json --report library", "the library's report is text, of one server"},
        {"cpu --connect :9", "--connect :9: needs HOST, HOST:PORT or [IPV6]:PORT"},
        {"cpu --connect [::1", "--connect [::1: needs HOST, HOST:PORT or [IPV6]:PORT"},
        {"cpu --connect a:0", "--connect a:0: needs a port from 1 to 65535 after the colon"},
        {"cpu --connect a:65536",
         "--connect a:65536: needs a port from 1 to 65535 after the colon"},
        {"cpu --key a", "--key and --server-key are for servers: name one with --connect"},
        {"cpu --connect a --key f", "the server's key is missing: name it with --server-key KEY"},
        {"cpu --connect a --server-key f", "moncl keygen FILE makes one"},
        {"cpu --connect a --connect b --connect c --key f --server-key d --server-key e",
         "--server-key is given once, or once for each server"},
        {"cpu --connect a --key /no_such_file --server-key d", "/no_such_file: No such file"},
        {"cpu --root /no_such_folder", "/no_such_folder"},
        {"cpu --simulate-board --connect a", "--connect excludes --simulate-board"},
        {"cpu --seed 1", "--seed requires --simulate-board"},
        {"cpu --simulate-board --seed 4294967296", "--seed"},
    };
    for (const auto& each : cases) {
        const outcome got = read(each.line);
        EXPECT_TRUE(got.called.ends) << each.line;
        EXPECT_EQ(got.called.status, tools::exit_usage) << each.line;
        EXPECT_EQ(std::count(got.err.begin(), got.err.end(), '\n'), 2) << got.err;
        EXPECT_EQ(got.err.rfind("moncl: ", 0), 0U) << got.err;
        EXPECT_NE(got.err.find(each.message), got.err.npos) << got.err;
    }
}
