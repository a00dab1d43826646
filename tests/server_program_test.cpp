// monsrv as a service: the rights it gives up, the service manager, the journal, its end.
#include "child_process.h"
#include "manager_support.h"
#include "mon_cpu.h"
#include "request_numbers.h"

#include <cmath>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace {
using words = std::vector<std::string>;

// Sends one request and takes the answer: its length, or a negated errno.
int ask(client_comm& connection, int command, int sub_command, int number) {
    const std::string payload = native(number);
    EXPECT_EQ(connection.send_msg_to_server(
                  command, sub_command, reinterpret_cast<const unsigned char*>(payload.data()), 4),
              0);
    const int result = connection.recv_msg_from_server();
    EXPECT_NE(result, -3) << "no answer";
    return result < 0 ? result : connection.get_recv_data()->msg_len;
}

std::string line_with(const std::string& key, int pid) {
    std::ifstream lines("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(key, 0) == 0)
            return line.substr(key.size() + 2);
    return "";
}

// The row of the process @p pid in the table of busiest ones.
pid_msg busiest_row(client_comm& connection, int pid) {
    for (int turn = 0; turn < 50; ++turn) {
        EXPECT_GT(ask(connection, cpu_command, cpu_request::busiest_processes, 0), 0);
        top_pid_info table;
        std::memcpy(&table, connection.get_recv_data()->msg, sizeof table);
        for (const pid_msg& row : table.send_pid_info)
            if (row.pid == pid)
                return row;
        usleep(100000);
    }
    ADD_FAILURE() << "process " << pid << " is in no table";
    return {};
}
} // namespace

TEST(server_rights, figures_of_other_users_are_refused_unless_they_are_asked_for) {
    if (geteuid() != 0 || *TEST_EMULATOR != '\0')
        GTEST_SKIP() << "needs root and the host's own kernel";
    constexpr const char* with_all = "0000004000080004"; // PTRACE, DAC_READ_SEARCH, PERFMON
    const struct {
        words options;
        const char* uid;
        const char* capabilities;
        int refusal; // of the process's I/O and sockets
    } cases[] = {{{}, "65534", "0000000000000000", -EACCES},
                 {{"--user", "nobody"}, "65534", "0000000000000000", -EACCES},
                 {{"--user", "root"}, "0", "0000000000000000", -EACCES},
                 {{"--all-processes"}, "65534", with_all, 0},
                 {{"--user", "root", "--all-processes"}, "0", with_all, 0}};
    const child_process busy(
        {"setpriv", "--reuid=1", "--clear-groups", "sh", "-c", "while :; do :; done"});
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.options));
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // that traces the process, which is refused
        const server_process server(0, "--bind=127.0.0.1", each.options);
        unsetenv("ASAN_OPTIONS");
        EXPECT_EQ(line_with("Uid", server.pid()),
                  each.uid + ("\t" + std::string(each.uid)) + "\t" + each.uid + "\t" + each.uid);
        EXPECT_EQ(line_with("CapEff", server.pid()), each.capabilities);
        EXPECT_EQ(line_with("CapPrm", server.pid()), each.capabilities);
        EXPECT_EQ(line_with("NoNewPrivs", server.pid()), "1");
        const auto connection = connect_to(server.port, true);
        EXPECT_GT(ask(*connection, cpu_command, cpu_request::process_status, busy.pid()), 0);
        const int io = ask(*connection, cpu_command, cpu_request::process_io, busy.pid());
        EXPECT_EQ(std::min(io, 0), each.refusal);
        EXPECT_EQ(ask(*connection, network_command, network_request::add_process, busy.pid()),
                  each.refusal);
        EXPECT_EQ(std::isnan(busiest_row(*connection, busy.pid()).io_per_second),
                  each.refusal != 0);
        int paranoid = 0;
        std::ifstream("/proc/sys/kernel/perf_event_paranoid") >> paranoid;
        const int counting = ask(*connection, cpu_command, cpu_request::enable_counters, 0);
        EXPECT_EQ(counting == -EACCES, each.refusal != 0 && paranoid > 0) << counting;
        close_at_once(*connection);
    }
}

TEST(server_rights, a_server_that_cannot_do_what_was_asked_for_does_not_start) {
    if (geteuid() != 0 || *TEST_EMULATOR != '\0')
        GTEST_SKIP() << "needs root";
    const file_tree tree; // its folder is closed to others
    const struct {
        words command;
        std::string error;
    } cases[] = {
        {{MONSRV_PROGRAM, "--user", "no-such"}, "monsrv: there is no user no-such\n"},
        {{"setpriv", "--reuid=1", "--clear-groups", MONSRV_PROGRAM, "--user", "nobody"},
         "monsrv: only root may become the user nobody\n"},
        {{MONSRV_PROGRAM, "--root", tree.root(), "--user", "nobody"},
         "monsrv: cannot read " + tree.root() + " any more (see --user): Permission denied\n"}};
    for (const auto& each : cases) {
        words command{"env", "ASAN_OPTIONS=detect_leaks=0"};
        command.insert(command.end(), each.command.begin(), each.command.end());
        child_process server(command);
        EXPECT_EQ(server.wait(), 1);
        EXPECT_THAT(server.err, testing::EndsWith(each.error));
    }
}

TEST(service_manager, is_told_of_start_life_and_end) {
    const file_tree folder;
    for (const std::string& name : {folder.root() + "/notify", "@" + folder.root()}) {
        const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, name.size());
        address.sun_path[0] = name[0] == '@' ? '\0' : name[0];
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        ASSERT_EQ(bind(manager, reinterpret_cast<sockaddr*>(&address), size), 0);
        const timeval patience{20, 0};
        setsockopt(manager, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        auto next = [manager] {
            char text[256];
            const ssize_t length = recv(manager, text, sizeof text, 0);
            return std::string(text, length > 0 ? static_cast<std::size_t>(length) : 0);
        };
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
        setenv("WATCHDOG_USEC", "100000", 1);
        server_process server;
        unsetenv("NOTIFY_SOCKET");
        unsetenv("WATCHDOG_USEC");
        EXPECT_EQ(next(), "READY=1\nSTATUS=listening at 127.0.0.1:" + std::to_string(server.port));
        for (int turn = 0; turn < 3; ++turn)
            EXPECT_EQ(next(), "WATCHDOG=1");
        server.send_signal(SIGTERM);
        std::string last = next();
        for (int turn = 0; turn < 20 && last == "WATCHDOG=1"; ++turn)
            last = next();
        EXPECT_EQ(last, "STOPPING=1");
        EXPECT_EQ(server.wait(), 0);
        close(manager);
    }
}

TEST(server_log, has_priorities_for_the_journal_only) {
    for (const auto& [stream, start] : {std::pair("/dev/stderr", "<6>listening at 127.0.0.1:"),
                                        {"/dev/null", "monsrv: listening at 127.0.0.1:"}}) {
        child_process server({"sh", "-c",
                              "JOURNAL_STREAM=$(stat -L -c %d:%i " + std::string(stream) +
                                  ") exec " TEST_EMULATOR " " MONSRV_PROGRAM " --port 0"});
        server.read_until(start, *start == '<');
    }
}

// A FIFO that nobody writes to stands for whatever never answers.
TEST(server_program, ends_at_once_while_reads_hang) {
    const file_tree tree;
    for (const char* path : {"/sys/class/thermal/thermal_zone0/temp", "/proc/meminfo"}) {
        tree.write(path, "");
        std::filesystem::remove(tree.root() + path);
        ASSERT_EQ(mkfifo((tree.root() + path).c_str(), 0600), 0);
    }
    server_process server(0, "--root=" + tree.root());
    const auto connection = connect_to(server.port, true);
    EXPECT_LE(ask(*connection, peripheral_command, peripheral_request::memory, 0), 0);
    EXPECT_EQ(
        connection->send_msg_to_server(peripheral_command, peripheral_request::thermal, nullptr, 0),
        0);
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
    close_at_once(*connection);
}

TEST(service_unit, is_valid_and_leaves_little_exposed) {
    if (std::system("command -v systemd-analyze >/dev/null") != 0)
        GTEST_SKIP() << "there is no systemd-analyze";
    const std::string source = TEST_DATA "/../../contrib/systemd/monsrv.service";
    const file_tree folder;
    const std::string unit = folder.root() + "/monsrv.service";
    child_process installed({"sed", "s:/usr/bin/monsrv:" MONSRV_PROGRAM ":", source});
    ASSERT_EQ(installed.wait(), 0);
    folder.write("/monsrv.service", installed.out);
    child_process valid({"systemd-analyze", "verify", unit});
    EXPECT_EQ(valid.wait(), 0) << valid.err;
    EXPECT_EQ(valid.err, "");
    child_process exposed({"systemd-analyze", "security", "--offline=yes", "--threshold=25", unit});
    EXPECT_EQ(exposed.wait(), 0) << exposed.out;
}
