// The server as seen from the wire: ids, refusals, packets, rude and slow clients; and the samplers
// of the first subjects.
#include "client_ids.h"
#include "cpu_stat_manager.h"
#include "sys_info_manager.h"

#include "child_process.h"
#include "manager_support.h"
#include "running_server.h"
#include "sampler_asker.h"

#include <future>

namespace {
// Sends @p request as it is: the answer's error code or its size.
int ask(client_comm& connection, const std::string& request, int flags = 0) {
    zmq_send(connection.get_socket(), request.data(), request.size(), flags);
    return flags != 0 ? 0 : connection.recv_msg_from_server();
}

const std::string cpu_query = request_bytes(0xAE02, 1, "");

// A client that keeps to no order: it sends what it likes and reads when it likes.
class rude_client {
public:
    explicit rude_client(int port) {
        for (const auto& [option, value] : {std::pair(ZMQ_LINGER, 1000),
                                            {ZMQ_RCVHWM, 1},
                                            {ZMQ_RCVBUF, 8192},
                                            {ZMQ_RCVTIMEO, 20000}})
            zmq_setsockopt(socket_, option, &value, sizeof value);
        zmq_connect(socket_, ("tcp://127.0.0.1:" + std::to_string(port)).c_str());
    }
    ~rude_client() {
        zmq_close(socket_);
        zmq_ctx_term(context_);
    }
    rude_client(const rude_client&) = delete;
    rude_client& operator=(const rude_client&) = delete;

    void send(const std::vector<std::string>& parts) const {
        for (const std::string& part : parts)
            zmq_send(socket_, part.data(), part.size(), &part == &parts.back() ? 0 : ZMQ_SNDMORE);
    }
    // "COMMAND:SUB " of the next answer; of several parts, the first.
    std::string receive() const {
        std::string frame(answer_frame_size, 0);
        std::size_t size = sizeof(int);
        zmq_recv(socket_, nullptr, 0, 0); // the delimiter
        zmq_recv(socket_, frame.data(), frame.size(), 0);
        for (int more = 1; more != 0;) {
            zmq_getsockopt(socket_, ZMQ_RCVMORE, &more, &size);
            if (more != 0)
                zmq_recv(socket_, nullptr, 0, 0);
        }
        std::ostringstream out;
        out << std::hex << header_of(frame).command << ':' << header_of(frame).sub_command << ' ';
        return out.str();
    }

private:
    void* context_ = zmq_ctx_new();
    void* socket_ = zmq_socket(context_, ZMQ_DEALER);
};

// A slow subject of a test: 0x5105, sub-command 1 for each client, 2 shared.
class gated_subject {
public:
    gated_subject() {
        latest = this;
        static const monsrv::sampler_registration registered(install);
    }
    ~gated_subject() {
        open();
        latest = nullptr;
    }
    gated_subject(const gated_subject&) = delete;
    gated_subject& operator=(const gated_subject&) = delete;

    void open() {
        if (!std::exchange(is_open_, true))
            state_->opened.set_value();
    }
    void wait_for_request() const { state_->begun.get_future().wait(); }
    /// What its thread was asked for: requests as "SUB ", clients that went as "-ID ". To be read
    /// when the server is gone and nothing is in progress.
    const std::string& calls() const { return state_->calls; }

private:
    // Not atomic: only one thread may touch the calls.
    struct state {
        std::promise<void> begun;
        std::promise<void> opened;
        std::shared_future<void> is_open{opened.get_future()};
        std::string calls;
    };
    static void install(monsrv::sampler_table& table, const monsrv::host&) {
        if (latest == nullptr)
            return;
        const std::size_t thread = table.add_slow_thread();
        for (const int sub : {1, 2})
            table.on_slow(
                thread, 0x5105, sub,
                [state = latest->state_](const monsrv::request& asked, monsrv::reply&) {
                    if (state->calls.empty())
                        state->begun.set_value();
                    state->calls += std::to_string(asked.sub_command) + " ";
                    state->is_open.wait();
                    return 0;
                },
                sub == 1 ? monsrv::sharing::none : monsrv::sharing::among_clients);
        table.on_client_gone(
            [state = latest->state_](int id) { state->calls += "-" + std::to_string(id) + " "; },
            thread);
    }

    static inline gated_subject* latest = nullptr;
    bool is_open_ = false;
    std::shared_ptr<state> state_ = std::make_shared<state>();
};
} // namespace

TEST(monitor_server, refuses_what_it_does_not_understand_and_goes_on) {
    const running_server server;
    const auto client = server.connect();
    auto with = [](int command, int sub, int msg_len, std::size_t size = 52) {
        return field(native(command) + native(sub) + native(msg_len), size);
    };
    // An oversized message costs its sender the connection, nobody else's.
    const auto flood = server.connect();
    ask(*flood, std::string(70000, 'x'), ZMQ_DONTWAIT);
    const std::pair<std::string, int> cases[] = {
        {with(1, 1, 4), -ENOSYS},
        {with(0xAE02, 999, 4), -ENOSYS},
        {with(0xEAEA, 3, 4), -ENOSYS},
        {with(0xEAEA, 2, 1), -EINVAL},
        {with(0xEAEA, 2, 0), -EINVAL},
        {"", -EBADMSG},
        {with(0xAE02, 1, 0, 43), -EBADMSG},
        {with(0xAE02, 1, 9, 52), -EBADMSG},
        {with(0xAE02, 1, 1025, 2000), -EBADMSG},
        {with(0xAE02, 1, -1), -EBADMSG},
        {with(0xAE02, 1, 4).replace(40, 1, "\7"), -EBADMSG},
        {with(0xAE02, 1, 0, 44), 8240},
        {with(0xAE02, 1, 4), 8240}};
    for (const auto& [request, result] : cases)
        EXPECT_EQ(ask(*client, request), result);
    ask(*client, with(0xAE02, 1, 4), ZMQ_SNDMORE);
    EXPECT_EQ(ask(*client, "second part"), 8240);
    close_at_once(*flood);
    close_at_once(*client);
}

TEST(monitor_server, drops_messages_that_are_no_request_and_nobody_elses_answers) {
    const running_server server;
    const auto client = server.connect();
    const struct {
        const char* name;
        std::vector<std::string> parts;
    } messages[] = {{"no delimiter", {cpu_query}},
                    {"no delimiter, two parts", {cpu_query, cpu_query}},
                    {"nothing", {""}},
                    {"a delimiter after something", {"x", "", cpu_query}},
                    {"too many parts", std::vector<std::string>(20)}};
    std::uint64_t malformed = 0;
    for (int round = 0; round < 20; ++round) {
        for (const auto& message : messages) {
            // It leaves at once, so the server cannot answer it any more.
            rude_client(server.port()).send(message.parts);
            ++malformed;
            EXPECT_EQ(ask(*client, cpu_query), 8240) << message.name;
        }
    }
    for (int i = 0; i < 1000 && server.counts().malformed < malformed; ++i)
        EXPECT_EQ(ask(*client, cpu_query), 8240);
    EXPECT_EQ(server.counts().malformed, malformed);
    close_at_once(*client);
}

TEST(monitor_server, keeps_few_answers_for_a_client_that_does_not_read) {
    const file_tree tree;
    tree.write("/proc/stat", "cpu 1\n");
    tree.write("/proc/interrupts",
               "CPU0\n" + repeated("100: 1 " + std::string(100, 'x') + "\n", 3700));
    const running_server server(tree.root());
    const auto client = server.connect();
    {
        const rude_client rude(server.port());
        for (int i = 0; i < 60; ++i) // 400,000 bytes each
            rude.send({"", request_bytes(0xAE02, 9, "")});
        for (int i = 0; i < 1000 && server.counts().dropped_answers == 0; ++i)
            EXPECT_EQ(ask(*client, cpu_query), 8240);
        EXPECT_GT(server.counts().dropped_answers, 0U);
        EXPECT_EQ(rude.receive(), "ae02:9 ") << "those before are whole";
    }
    EXPECT_EQ(ask(*client, cpu_query), 8240) << "after it has gone away";
    close_at_once(*client);
}

TEST(monitor_server, holds_up_nobody_else_for_a_slow_request) {
    gated_subject slow;
    std::optional<running_server> server(std::in_place);
    const int port = server->port();
    const auto client = server->connect();
    const rude_client rude(port);
    const rude_client sharing[] = {rude_client(port), rude_client(port)};
    rude.send({"", request_bytes(0x5105, 1, "")});
    slow.wait_for_request();
    for (int i = 0; i < 20; ++i)
        rude.send({"", cpu_query});
    for (const rude_client& each : sharing)
        each.send({"", request_bytes(0x5105, 2, "")});
    {
        const rude_client gone(port);
        gone.send({"", request_bytes(0x5105, 1, "")});
        for (int i = 0; i < 1000 && server->counts().slow < 4; ++i)
            EXPECT_EQ(ask(*client, cpu_query), 8240);
    }
    for (int i = 0; i < 1000 && server->counts().connections > 4; ++i)
        EXPECT_EQ(ask(*client, cpu_query), 8240);
    EXPECT_EQ(server->counts().connections, 4U);
    for (int i = 0; i < 1000 && server->counts().dropped_requests < 18; ++i)
        EXPECT_EQ(ask(*client, cpu_query), 8240);
    EXPECT_EQ(server->counts().dropped_requests, 18U) << "two wait";
    slow.open();
    for (const char* answer : {"5105:1 ", "ae02:1 ", "ae02:1 "})
        EXPECT_EQ(rude.receive(), answer);
    for (const rude_client& each : sharing)
        EXPECT_EQ(each.receive(), "5105:2 ");
    EXPECT_EQ(ask(*client, request_bytes(0xEAEA, 2, "\1")), 8240);
    rude.send({"", request_bytes(0x5105, 1, "")});
    EXPECT_EQ(rude.receive(), "5105:1 ");
    close_at_once(*client);
    server.reset();
    EXPECT_EQ(slow.calls(), "1 2 -1 1 ") << "and nothing for the client that went";
}

// What was sent before a stop is taken after it, when another connection may have its descriptor.
TEST(monitor_server, answers_a_client_that_has_the_descriptor_of_one_that_went) {
    server_process server;
    for (int i = 0; i < 40; ++i) {
        std::optional<rude_client> first(std::in_place, server.port);
        first->send({"", cpu_query});
        EXPECT_EQ(first->receive(), "ae02:1 ");
        server.send_signal(SIGSTOP);
        first->send({"", cpu_query});
        first.reset();
        if (i % 2 == 1)
            rude_client silent(server.port);
        const rude_client last(server.port);
        last.send({"", cpu_query});
        server.send_signal(SIGCONT);
        ASSERT_EQ(last.receive(), "ae02:1 ") << i;
    }
}

TEST(monitor_server, stops_while_a_slow_request_is_in_progress) {
    gated_subject slow;
    const running_server server;
    const rude_client rude(server.port());
    rude.send({"", request_bytes(0x5105, 1, "")});
    slow.wait_for_request();
} // the server goes first

TEST(monitor_server, grants_each_connection_one_id_that_no_other_can_give_back) {
    const running_server server;
    const auto client = server.connect(); // has id 1
    const auto other = server.connect();
    auto granted = [](client_comm& to) {
        ask(to, request_bytes(0xEAEA, 1, ""));
        return to.get_recv_data()->msg[0];
    };
    EXPECT_EQ(granted(*client), 1);
    EXPECT_EQ(granted(*other), 2);
    EXPECT_EQ(ask(*other, request_bytes(0xEAEA, 2, "\1")), -EACCES);
    EXPECT_EQ(ask(*other, request_bytes(0xEAEA, 2, "\2")), 8240);
    EXPECT_EQ(ask(*other, request_bytes(0xEAEA, 2, "\2")), -EINVAL);
    EXPECT_EQ(granted(*other), 3) << "2 was free later";
    close_at_once(*other);
    for (int i = 0; i < 1000 && server.counts().held_ids > 1; ++i)
        ask(*client, cpu_query);
    EXPECT_EQ(server.counts().held_ids, 1U) << "the id of a connection that has gone";
    close_at_once(*client);
}

TEST(client_ids, belong_to_a_connection_until_it_has_gone) {
    using std::chrono::seconds;
    monsrv::client_ids ids;
    const auto start = monsrv::client_ids::clock::now();
    ids.seen(7, "a", start); // granted before a restart
    EXPECT_EQ(ids.grant("a", start), 7);
    for (int i = 1; i <= 255; ++i)
        ids.grant("peer " + std::to_string(i), start);
    EXPECT_EQ(ids.grant("too many", start), 0);
    EXPECT_EQ(ids.held(), 255U);

    ids.counting_switched(7, "a", true);
    ids.seen(7, "b", start); // another connection of the same process, or a thief
    EXPECT_FALSE(ids.may_switch_counting(7, "b"));
    EXPECT_EQ(ids.give_back(7, "b", start), -EACCES);
    ids.gone("a", start); // the other uses it on
    EXPECT_EQ(ids.held_by("b"), 7);
    EXPECT_TRUE(ids.may_switch_counting(7, "b"));
    ids.gone("b", start);
    EXPECT_EQ(ids.held_by("b"), 0);
    EXPECT_TRUE(ids.take_forgotten(start + seconds(9)).empty());
    ids.seen(7, "b again", start + seconds(9));
    EXPECT_FALSE(ids.may_switch_counting(7, "thief")) << "counting went on";
    EXPECT_TRUE(ids.take_forgotten(start + seconds(11)).empty());
    ids.gone("b again", start + seconds(11));
    EXPECT_EQ(ids.take_forgotten(start + seconds(21)), std::vector<std::uint8_t>{7});

    ids.counting_switched(0, "without an id", true);
    ids.gone("without an id", start + seconds(30));
    EXPECT_EQ(ids.take_forgotten(start + seconds(40)), std::vector<std::uint8_t>{0});
}

TEST(client_ids, reclaim_abandoned_ones_last) {
    monsrv::client_ids ids;
    const auto start = monsrv::client_ids::clock::now();
    auto granted = [&](int minute) {
        return ids.grant(std::to_string(minute) + std::to_string(ids.held()),
                         start + std::chrono::minutes(minute));
    };
    ids.seen(1, "a", start);
    EXPECT_EQ(granted(0), 2);
    for (int i = 3; i <= 255; ++i)
        granted(30);
    EXPECT_EQ(granted(59), 0);
    ids.seen(1, "a", start + std::chrono::minutes(60));
    EXPECT_EQ(granted(61), 2);
}

TEST(first_samplers, answer_from_a_tree_of_another_machine) {
    const file_tree tree;
    tree.write("/proc/sys/kernel/osrelease", "6.1.0-board\n");
    tree.write("/proc/cpuinfo", "processor : 0\ncpu MHz : 1000.5\n\nprocessor : 2\ncpu MHz : 2400");
    tree.write("/sys/devices/system/cpu/cpu0/cpufreq/scaling_cur_freq", "1500000\n");
    sampler_asker asker(tree.root());
    auto answer = [&asker](int command, int sub) {
        const int result = asker.ask(command, sub);
        return result != 0 ? std::to_string(result) : asker.bytes;
    };
    auto possible = [&](const std::string& list) {
        tree.write("/sys/devices/system/cpu/possible", list);
        return answer(0xAE01, 9);
    };
    expect_each(possible, {{"a range", "0-7\n", "0-7\n"},
                           {"one CPU", "0\n", "0-0\n"},
                           {"two ranges", "0-3,8-11\n", "0-7\n"},
                           {"single CPUs", "0,2,4", "0-2\n"},
                           {"no list", "x", std::to_string(-EIO)}});
    EXPECT_EQ(answer(0xAE01, 10) + answer(0xAE01, 1) + answer(0xAE01, 3) + answer(0xAE01, 2),
              "6.1.0-board\n1500000\n2400000\n" + std::to_string(-ENOENT));
    tree.write("/new", "6.2.0-board\n");
    std::filesystem::rename(tree.root() + "/new", tree.root() + "/proc/sys/kernel/osrelease");
    EXPECT_EQ(answer(0xAE01, 10), "6.2.0-board\n") << "a file that was replaced";
    tree.write("/proc/stat", "cpu  10 20\ncpu0 1 2 3\ncpu7 4\nintr 5 6\ncpu8 x\n");
    EXPECT_EQ(answer(0xAE02, 1), "cpu  10 20\ncpu0 1 2 3\ncpu7 4\n");
    const std::string line = "cpu1 1 2 3 4 5 6 7 8 9 10\n";
    tree.write("/proc/stat", repeated(line, 500));
    EXPECT_EQ(answer(0xAE02, 1), repeated(line, 315)) << "as many whole lines as fit";
}
