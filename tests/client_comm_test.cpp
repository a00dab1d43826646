// The connection: bytes of requests, what is taken as an answer, several parts, the client id.
#include "manager_support.h"
#include "patterns.h"

#include <csignal>
#include <sys/time.h>

namespace {
struct client_comm_test : testing::Test {
    ~client_comm_test() override {
        close_at_once(*connection);
        client_comm::client_id = 0;
    }
    // Sends a request and receives its answer.
    int ask(answer_packets answer) {
        server.next(std::move(answer));
        EXPECT_EQ(connection->send_msg_to_server(0xAE02, 1, nullptr, 0), 0);
        return connection->recv_msg_from_server();
    }
    // Errors logged since the last call.
    std::string errors() { return with_replaced(log.take(), "4 .*\n|6 MONCL_COMM: ", ""); }

    log_capture log;
    scripted_server server;
    std::shared_ptr<client_comm> connection = server.connect();
    const std::string silent = "zmq_poll timeout, please check connection with 127.0.0.1:" +
                               std::to_string(server.port()) + "\n";
};
const std::string shorter = " bytes is shorter than its header\n";
const std::string crc = "crc error, compute crc is 0 , receive crc is ";
} // namespace

TEST_F(client_comm_test, asks_for_an_id_and_gives_it_back) {
    auto second = server.connect();
    EXPECT_EQ(client_comm::client_id, 7);
    const std::string give_back = request_bytes(60138, 2, "\7");
    second.reset(); // the first one destroyed
    EXPECT_EQ(client_comm::client_id, 0);
    const auto requests = server.take_requests(true);
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(comparable(requests[0]), request_bytes(60138, 1, std::string(4, '\0')));
    EXPECT_EQ(comparable(requests[1]), give_back);
    EXPECT_EQ(log.take(), "4 MONCL_COMM: Client get new id 7\n4 MONCL_COMM: Client back id 7\n");

    server.granted_id = 0;
    connection = server.connect();
    EXPECT_EQ(errors(), "Recv client_id is Unavailable\n");
    client_comm::client_id = 9;
    server.granted_id = -1;
    server.next({error_packet(2, -5)});
    EXPECT_EQ(connection->back_client_id(), -5);
    EXPECT_EQ(errors(), "Handle request return -5\nBack request id failed -5\n");
    close_at_once(*connection);
    EXPECT_EQ(connection->back_client_id(), -2);
    EXPECT_EQ(client_comm::client_id, 9) << "it is kept";
    EXPECT_EQ(errors(), "zmq_send error, Socket operation on non-socket\nSend back id failed -2\n");
    client_comm::client_id = 0;
    server.next({}); // nobody answers
    EXPECT_EQ(connection->connect_to_server(), -3);
    EXPECT_EQ(errors(), silent + "Recv request id failed -3\n");
}

TEST_F(client_comm_test, sends_48_bytes_and_the_payload) {
    std::string bytes;
    for (int i = 1; i <= 1025; ++i)
        bytes += static_cast<char>(i);
    const auto* payload = reinterpret_cast<const unsigned char*>(bytes.data());
    for (unsigned size : {0U, 4U, 1024U}) {
        const auto before = connection->get_send_time_us();
        ASSERT_EQ(connection->send_msg_to_server(-3, 77, payload, size), 0);
        EXPECT_GT(connection->get_send_time_us(), before);
        ASSERT_GT(connection->recv_msg_from_server(), 0);
        EXPECT_EQ(comparable(server.take_requests().at(0)),
                  request_bytes(-3, 77, bytes.substr(0, size)));
    }
    EXPECT_EQ(connection->send_msg_to_server(1, 1, payload, 1025), -1);
    EXPECT_EQ(errors(), "client_comm send support max len is 1024\n");
    // The very bytes that docs/protocol.md shows.
    const std::string expected("\x02\xAE\0\0\3\0\0\0\4\0\0\0\x30\0\0\0\0\0\x30\7"
                               "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\xD2\4",
                               46);
    const unsigned char pid[] = {0xD2, 4, 0, 0};
    ASSERT_EQ(connection->send_msg_to_server(0xAE02, 3, pid, 4), 0);
    ASSERT_GT(connection->recv_msg_from_server(), 0);
    const std::string request = server.take_requests().at(0);
    EXPECT_EQ(request.substr(24, 16), native(connection->get_send_data()->time));
    EXPECT_EQ(comparable(request), expected + std::string(2, '\0'));
}

TEST_F(client_comm_test, judges_answers) {
    const std::string text = "0123456789";
    const std::string full(8192, 'a');
    // Name, answer, result, what the payload starts with (zeros must follow), log.
    const std::tuple<const char*, std::string, int, std::string, std::string> cases[] = {
        {"good", packet(1, text), 8240, text, ""},
        {"shorter msg_len", packet(1, text, 4), 8240, "0123", ""},
        {"msg_len beyond what came", packet(1, text, 500).substr(0, 54), 54, text, ""},
        {"header alone", packet(1, "", 8192).substr(0, 44), 44, "", ""},
        {"full payload", packet(1, full), 8240, full, ""},
        {"one byte less", packet(1, full, 8191), 8240, full.substr(1), ""},
        {"msg_len that announces parts", packet(1, text, 8193), 8240, text, ""},
        {"longer than a frame", packet(1, text) + full.substr(0, 760), 9000, text, ""},
        {"checksum", packet(1, text, 4, 0x80000000), -4, "", crc + "-2147483648\n"},
        {"server error", error_packet(1, -5), -5, "", "Handle request return -5\n"},
        {"error like a time-out", error_packet(1, -3), -3, "", "Handle request return -3\n"},
        {"runt", packet(1, "").substr(0, 43), -1, "", "zmq_recv error, frame of 43" + shorter}};
    for (const auto& [name, answer, result, shown, logged] : cases) {
        ASSERT_EQ(ask({packet(1, std::string(8192, 'z'))}),
                  8240); // its bytes must not be seen later
        const auto before = connection->get_recv_time_us();
        EXPECT_EQ(ask({answer}), result) << name;
        EXPECT_GE(connection->get_recv_time_us(), before);
        EXPECT_EQ(errors(), logged);
        const auto* payload = reinterpret_cast<char*>(connection->get_recv_data()->msg);
        EXPECT_TRUE(result < 0 || std::string(payload, 8196) == field(shown, 8196)) << name;
    }
}

TEST_F(client_comm_test, joins_parts) {
    const std::string a(8192, 'a');
    const std::string ab = a + std::string(8192, 'b');
    const std::string first = packet(9, a, 2 * 8192 + 3);
    const std::string second = packet(9, ab.substr(8192));
    const answer_packets parts = {first, second, packet(9, "end")};
    const std::string runt = "zmq_recv error, frame of 10" + shorter;
    // Answer, up to its last part, room, result, what arrives (zeros up to the part's end), log.
    const std::tuple<answer_packets, bool, int, int, std::string, std::string> cases[] = {
        {parts, true, 24576, 0, ab + "end", ""},
        {parts, false, 32768, -1, ab + "end", // one receive more by default
         "zmq_recv error, Operation cannot be accomplished in current state\n"},
        {{packet(9, "one")}, true, 8192, 0, "one", ""},
        {parts, true, 24575, -1, ab, "answer does not fit into 24575 bytes\n"},
        {parts, true, 8191, -1, "", "answer does not fit into 8191 bytes\n"},
        {{first, second.substr(0, 50), parts[2]}, true, 24576, 0, a + "bbbbbb", ""},
        {{first, packet(9, "", 0, 1)}, true, 24576, -1, a, crc + "1\n"},
        {{first, second.substr(0, 10)}, true, 24576, -1, a, runt}};
    for (const auto& [answer, whole, size, result, arrived, logged] : cases) {
        close_at_once(*connection);
        connection = server.connect(whole);
        EXPECT_EQ(ask(answer), 8240);
        errors();
        std::vector<unsigned char> room(
            static_cast<std::size_t>(size)); // a sanitizer sees a write beyond it
        EXPECT_EQ(connection->recv_more_msg(room.data(), size), result);
        const std::string filled = field(arrived, (arrived.size() + 8191) / 8192 * 8192);
        EXPECT_TRUE(std::equal(filled.begin(), filled.end(), reinterpret_cast<char*>(room.data())));
        EXPECT_EQ(errors(), logged);
        const auto* payload = reinterpret_cast<char*>(connection->get_recv_data()->msg);
        EXPECT_TRUE(logged.find("zmq_recv") != 0 || std::string(payload, 8192) == field("", 8192));
    }
}

TEST_F(client_comm_test, knows_whose_a_code_is_and_starts_over) {
    EXPECT_EQ(ask({error_packet(1, -3)}), -3);
    EXPECT_TRUE(answered(*connection, -3));
    EXPECT_FALSE(answered(*connection, -4)) << "of another query";
    EXPECT_EQ(ask({packet(1, "", 0, 1)}), -4);
    EXPECT_FALSE(answered(*connection, -4));
    EXPECT_EQ(ask({error_packet(1, -2)}), -2);
    EXPECT_EQ(ask({}), -3);
    EXPECT_EQ(connection->send_msg_to_server(1, 1, nullptr, 0), -2);
    EXPECT_FALSE(answered(*connection, -2));
    EXPECT_EQ(start_over(*connection), 0);
    EXPECT_EQ(ask({packet(1, "")}), 8240);
    const std::string give_back = request_bytes(60138, 2, "\7");
    EXPECT_EQ(leave(*connection), 0);
    EXPECT_EQ(comparable(server.take_requests(true).back()), give_back);
    EXPECT_EQ(connection->get_socket(), nullptr);
    EXPECT_EQ(close_at_once(*connection), 0);
    server.granted_id = -1;
    server.next({}); // nobody answers
    EXPECT_EQ(start_over(*connection), -3);
    EXPECT_EQ(connection->get_socket(), nullptr) << "nothing waits to be delivered later";
}

TEST_F(client_comm_test, closes_after_a_signal_interrupted_it) {
    client_comm nobody("127.0.0.1", 1);
    ASSERT_EQ(nobody.connect_to_server(), 0);
    ASSERT_EQ(nobody.send_msg_to_server(1, 1, nullptr, 0), 0);
    const int linger_ms = 1000; // closing waits that long for nobody to take the request
    zmq_setsockopt(nobody.get_socket(), ZMQ_LINGER, &linger_ms, sizeof linger_ms);
    struct sigaction interrupts {}; // without SA_RESTART
    interrupts.sa_handler = [](int) {};
    sigaction(SIGALRM, &interrupts, nullptr);
    itimerval often{{0, 20000}, {0, 20000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(nobody.close_connect(), -1);
    often = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(errors(), "zmq_ctx_term error, Interrupted system call\n");
    EXPECT_EQ(nobody.get_socket(), nullptr);
    EXPECT_EQ(nobody.close_connect(), 0);
    EXPECT_EQ(nobody.close_connect(), -1) << "nothing is left to close";
}

TEST_F(client_comm_test, leaves_nothing_open_where_it_cannot_connect) {
    client_comm::client_id = 0; // the destructor would give it back
    client_comm nowhere("no such host name", 1);
    EXPECT_EQ(nowhere.connect_to_server(), -3);
    EXPECT_EQ(errors(), "zmq_connect error, Invalid argument\n");
    EXPECT_EQ(nowhere.get_socket(), nullptr);
    EXPECT_EQ(nowhere.recv_msg_from_server(), -3);
}

TEST_F(client_comm_test, keeps_an_id_of_its_own_where_that_is_asked_for) {
    scripted_server other;
    other.granted_id = 9;
    client_comm to_first("127.0.0.1", server.port());
    client_comm to_other("127.0.0.1", other.port());
    for (client_comm* each : {&to_first, &to_other}) {
        each->keep_own_id();
        ASSERT_EQ(each->connect_to_server(), 0);
        each->send_msg_to_server(0xAE02, 1, nullptr, 0);
        each->recv_msg_from_server();
    }
    EXPECT_EQ(header_of(server.take_requests().at(0)).client_id, 7);
    EXPECT_EQ(header_of(other.take_requests().at(0)).client_id, 9);
    EXPECT_EQ(client_comm::client_id, 0) << "the process's";
    EXPECT_EQ(to_other.back_client_id(), 0);
    EXPECT_EQ(other.take_requests(true).back().substr(frame_header_size, 1), "\t");
    for (client_comm* each : {&to_first, &to_other})
        close_at_once(*each);
}
