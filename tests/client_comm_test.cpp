// The connection: bytes of requests, what is taken as an answer, several parts, the client id.
#include "manager_support.h"

#include <numeric>

namespace {
class client_comm_test : public testing::Test {
protected:
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
    std::string errors() {
        std::istringstream lines(log.take());
        std::string all;
        for (std::string line; std::getline(lines, line);)
            all += line.rfind("6 MONCL_COMM: ", 0) == 0 ? line.substr(14) + "|" : "";
        return all;
    }

    log_capture log;
    scripted_server server;
    std::shared_ptr<client_comm> connection = server.connect();
    const std::string silent = "zmq_poll timeout, please check connection with 127.0.0.1:" +
                               std::to_string(server.port()) + "|";
};
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
    EXPECT_EQ(errors(), "Recv client_id is Unavailable|");
    EXPECT_EQ(ask({packet(1, "")}), 8240) << "it goes on without";
    client_comm::client_id = 9;
    server.granted_id = -1;
    server.next({error_packet(2, -5)});
    EXPECT_EQ(connection->back_client_id(), -5);
    EXPECT_EQ(errors(), "Handle request return -5|Back request id failed -5|");
    close_at_once(*connection);
    EXPECT_EQ(connection->back_client_id(), -2);
    EXPECT_NE(errors().find("Send back id failed -2|"), std::string::npos);
    EXPECT_EQ(client_comm::client_id, 9) << "it is kept";
    client_comm::client_id = 0;
    server.next({}); // nobody answers
    EXPECT_EQ(connection->connect_to_server(), -3);
    EXPECT_EQ(errors(), silent + "Recv request id failed -3|");
}

TEST_F(client_comm_test, sends_48_bytes_and_the_payload) {
    unsigned char bytes[1025];
    std::iota(std::begin(bytes), std::end(bytes), static_cast<unsigned char>(1));
    for (unsigned size : {0U, 4U, 1024U}) {
        const auto before = connection->get_send_time_us();
        ASSERT_EQ(connection->send_msg_to_server(-3, 77, bytes, size), 0);
        EXPECT_GT(connection->get_send_time_us(), before);
        ASSERT_GT(connection->recv_msg_from_server(), 0);
        EXPECT_EQ(comparable(server.take_requests().at(0)),
                  request_bytes(-3, 77, std::string(bytes, bytes + size)));
    }
    EXPECT_EQ(connection->send_msg_to_server(1, 1, bytes, 1025), -1);
    EXPECT_EQ(errors(), "client_comm send support max len is 1024|");
    // The very bytes that docs/protocol.md shows.
    const unsigned char pid[4] = {0xD2, 0x04, 0, 0};
    const unsigned char expected[48] = {
        0x02, 0xAE, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0, 0x30, 0, 0, 0, 0, 0, 0x30, 7, 0,    0,    0, 0,
        0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,    0, 0, 0, 0, 0, 0,    0, 0xD2, 0x04, 0, 0};
    ASSERT_EQ(connection->send_msg_to_server(0xAE02, 3, pid, 4), 0);
    ASSERT_GT(connection->recv_msg_from_server(), 0);
    const std::string request = server.take_requests().at(0);
    EXPECT_EQ(request.substr(24, 16), native(connection->get_send_data()->time));
    EXPECT_EQ(comparable(request), std::string(expected, expected + 48));
}

TEST_F(client_comm_test, judges_answers) {
    const std::string text = "0123456789";
    const std::string full(8192, 'a');
    const struct {
        const char* name;
        std::string answer;
        int result;
        std::string shown = {}; // what the payload starts with; zeros must follow
        std::string logged = {};
    } cases[] = {
        {"good", packet(1, text), 8240, text},
        {"shorter msg_len", packet(1, text, 4), 8240, "0123"},
        {"msg_len beyond what came", packet(1, text, 500).substr(0, 54), 54, text},
        {"header alone", packet(1, "", 8192).substr(0, 44), 44},
        {"full payload", packet(1, full), 8240, full},
        {"one byte less", packet(1, full, 8191), 8240, full.substr(1)},
        {"msg_len that announces parts", packet(1, text, 8193), 8240, text},
        {"longer than a frame", packet(1, text) + full.substr(0, 760), 9000, text},
        {"checksum", packet(1, text, 4, 0x80000001), -4, "",
         "crc error, compute crc is 0 , receive crc is -2147483647|"},
        {"server error", error_packet(1, -5), -5, "", "Handle request return -5|"},
        {"server error like a time-out", error_packet(1, -3), -3, "", "Handle request return -3|"},
        {"runt", packet(1, "", 4).substr(0, 43), -1, "",
         "zmq_recv error, frame of 43 bytes is shorter than its header|"},
    };
    for (const auto& each : cases) {
        ASSERT_EQ(ask({packet(1, std::string(8192, 'z'))}), 8240); // would show through
        const auto before = connection->get_recv_time_us();
        EXPECT_EQ(ask({each.answer}), each.result) << each.name;
        EXPECT_GE(connection->get_recv_time_us(), before);
        EXPECT_EQ(errors(), each.logged);
        const auto* payload = reinterpret_cast<char*>(connection->get_recv_data()->msg);
        EXPECT_TRUE(each.result < 0 || std::string(payload, 8196) == field(each.shown, 8196))
            << each.name;
    }
}

TEST_F(client_comm_test, joins_parts) {
    const std::string a(8192, 'a');
    const std::string b(8192, 'b');
    const std::string first = packet(9, a, 2 * 8192 + 3);
    const answer_packets parts = {first, packet(9, b), packet(9, "end")};
    const struct {
        const char* name;
        answer_packets answer;
        bool whole;
        int room;
        int result;
        std::string arrived; // then nothing up to the end of the part
        std::string logged = {};
    } cases[] = {
        {"to the last part", parts, true, 24576, 0, a + b + "end"},
        {"and one more by default", parts, false, 4 * 8192, -1, a + b + "end",
         "zmq_recv error, Operation cannot be accomplished in current state|"},
        {"a single part", {packet(9, "one")}, true, 8192, 0, "one"},
        {"little room", parts, true, 24575, -1, a + b, "answer does not fit into 24575 bytes|"},
        {"no room at all", parts, true, 8191, -1, "", "answer does not fit into 8191 bytes|"},
        {"cut", {first, packet(9, b).substr(0, 50), parts[2]}, true, 24576, 0, a + "bbbbbb"},
        {"a wrong checksum",
         {first, packet(9, "", 0, 1)},
         true,
         24576,
         -1,
         a,
         "crc error, compute crc is 0 , receive crc is 1|"},
        {"a runt",
         {first, packet(9, "").substr(0, 10)},
         true,
         24576,
         -1,
         a,
         "zmq_recv error, frame of 10 bytes is shorter than its header|"},
    };
    for (const auto& each : cases) {
        close_at_once(*connection);
        connection = server.connect(each.whole);
        EXPECT_EQ(ask(each.answer), 8240);
        errors();
        std::vector<char> room(static_cast<std::size_t>(each.room)); // its end is guarded
        EXPECT_EQ(
            connection->recv_more_msg(reinterpret_cast<unsigned char*>(room.data()), each.room),
            each.result)
            << each.name;
        const std::size_t filled = (each.arrived.size() + 8191) / 8192 * 8192;
        EXPECT_TRUE(std::string(room.data(), filled) == field(each.arrived, filled)) << each.name;
        EXPECT_EQ(errors(), each.logged) << each.name;
    }
}

TEST_F(client_comm_test, refuses_to_go_on_after_a_failure_until_it_is_connected_again) {
    EXPECT_EQ(ask({}), -3);
    EXPECT_EQ(errors(), silent);
    EXPECT_EQ(connection->send_msg_to_server(1, 1, nullptr, 0), -2);
    close_at_once(*connection);
    EXPECT_EQ(connection->get_socket(), nullptr);
    EXPECT_EQ(connection->connect_to_server(), 0);
    EXPECT_EQ(ask({packet(1, "")}), 8240);
    errors();
    client_comm nowhere("no such host name", 1);
    EXPECT_EQ(nowhere.connect_to_server(), -3);
    EXPECT_EQ(errors(), "zmq_connect error, Invalid argument|");
    EXPECT_EQ(nowhere.get_socket(), nullptr);
    client_comm::client_id = 0; // or it would be given back
    EXPECT_EQ(nowhere.send_msg_to_server(1, 1, nullptr, 0), -2);
    EXPECT_EQ(nowhere.recv_msg_from_server(), -3);
    EXPECT_EQ(nowhere.close_connect(), -1);
}
