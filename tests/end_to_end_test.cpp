// moncl against monsrv, as separate processes.
#include "child_process.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

namespace {
// monsrv at a port, which stays its own when it is started again.
class server_process {
public:
    explicit server_process(int port = 0)
        : process_({MONSRV_PROGRAM, "--port", std::to_string(port)}) {
        const std::string line = process_.read_until("\n");
        port_ = std::stoi(line.substr(line.rfind(':') + 1));
    }
    int port() const { return port_; }
    std::string endpoint() const { return "127.0.0.1:" + std::to_string(port_); }
    child_process& process() { return process_; }

private:
    child_process process_;
    int port_;
};

std::vector<std::string> words_of(const std::string& line) {
    std::istringstream stream(line);
    return {std::istream_iterator<std::string>(stream), {}};
}
} // namespace

TEST(end_to_end, cpu_shows_true_tables_of_this_machine) {
    server_process server;
    child_process moncl({MONCL_PROGRAM, "--connect", server.endpoint(), "cpu", "0.3", "2"});
    EXPECT_EQ(moncl.wait(), 0);
    EXPECT_EQ(moncl.err, "");
    std::istringstream lines(moncl.out);
    const std::string heading =
        "CPU   usr       sys       iowait    irq       sirq      usage     ";
    int tables = 0;
    int rows = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line == heading) {
            ++tables;
            continue;
        }
        ++rows;
        std::replace(line.begin(), line.end(), '%', ' ');
        const std::vector<std::string> words = words_of(line);
        ASSERT_EQ(words.size(), 7U) << line;
        EXPECT_EQ(words[0].rfind("cpu", 0), 0U);
        EXPECT_GE(std::stod(words[6]), 0) << line;
        EXPECT_LE(std::stod(words[6]), 100.01) << line;
    }
    EXPECT_EQ(tables, 2);
    EXPECT_GE(rows, 4);
    server.process().send_signal(SIGTERM);
    EXPECT_EQ(server.process().wait(), 0);
}

TEST(end_to_end, a_server_inside_the_program_says_so) {
    child_process moncl({MONCL_PROGRAM, "sysinfo"});
    EXPECT_EQ(moncl.wait(), 0);
    EXPECT_EQ(moncl.out.rfind("version   ", 0), 0U);
    EXPECT_EQ(moncl.err.rfind("moncl: asking a server inside this program, at 127.0.0.1:", 0), 0U);
}

TEST(end_to_end, ends_quietly) {
    for (int number : {SIGINT, SIGTERM}) {
        child_process moncl({MONCL_PROGRAM, "cpu", "0.1"});
        moncl.read_until("usage");
        moncl.send_signal(number);
        EXPECT_EQ(moncl.wait(), 0);
        EXPECT_EQ(std::count(moncl.err.begin(), moncl.err.end(), '\n'), 1) << moncl.err;
    }
    child_process moncl({MONCL_PROGRAM, "cpu", "0.1"});
    moncl.read_until("usage");
    moncl.stop_reading();
    EXPECT_EQ(moncl.wait(), 0);
}

TEST(end_to_end, tells_statuses_apart) {
    int port = 0;
    {
        server_process gone;
        port = gone.port();
    }
    child_process unasked({MONCL_PROGRAM, "--connect", "127.0.0.1:" + std::to_string(port), "cpu"});
    EXPECT_EQ(unasked.wait(), 1);
    EXPECT_EQ(unasked.err,
              "moncl: CPU connect to server failed, at 127.0.0.1:" + std::to_string(port) + "\n");
    child_process misused({MONCL_PROGRAM, "cpu", "never"});
    EXPECT_EQ(misused.wait(), 2);
    child_process server({MONSRV_PROGRAM, "--port", "70000"});
    EXPECT_EQ(server.wait(), 2);
    server_process first;
    child_process second({MONSRV_PROGRAM, "--port", std::to_string(first.port())});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_NE(second.err.find("Address already in use"), std::string::npos);
}

TEST(end_to_end, picks_up_again_when_the_server_is_back) {
    auto server = std::make_unique<server_process>();
    const int port = server->port();
    child_process moncl({MONCL_PROGRAM, "--connect", server->endpoint(), "cpu", "0.2"});
    moncl.read_until("usage");
    server.reset();
    moncl.read_until("no answer from 127.0.0.1:" + std::to_string(port) + ", trying again\n", true);
    server = std::make_unique<server_process>(port);
    moncl.read_until("is back\n", true);
    moncl.read_until("usage");
    moncl.send_signal(SIGINT);
    EXPECT_EQ(moncl.wait(), 0);
}

TEST(end_to_end, fails_when_the_server_stays_away) {
    auto server = std::make_unique<server_process>();
    child_process moncl({MONCL_PROGRAM, "--connect", server->endpoint(), "cpu", "0.2", "4"});
    moncl.read_until("usage");
    server.reset();
    EXPECT_EQ(moncl.wait(), 1);
}
