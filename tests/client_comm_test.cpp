// The connection: bytes of requests, what is taken as an answer, several parts, the client id.
#include "log_capture.h"
#include "scripted_server.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <numeric>
#include <zmq.h>

namespace {
constexpr int payload_size = answer_payload_max;

class client_comm_test : public testing::Test {
protected:
    client_comm_test() { client_comm::client_id = 0; }
    ~client_comm_test() override {
        if (connection_)
            close_at_once(*connection_);
        client_comm::client_id = 0;
    }

    client_comm& connected(bool whole = false) {
        connection_ = server_.connect(whole);
        server_.take_all_requests();
        log_ = log_capture();
        return *connection_;
    }
    // Sends a request and receives its answer.
    int ask(client_comm& connection) {
        const unsigned char zero[4] = {};
        EXPECT_EQ(connection.send_msg_to_server(0xAE02, 1, zero, 4), 0);
        return connection.recv_msg_from_server();
    }
    std::string payload(client_comm& connection, std::size_t size = payload_size + 4) {
        return {reinterpret_cast<char*>(connection.get_recv_data()->msg), size};
    }

    log_capture log_;
    scripted_server server_;
    std::shared_ptr<client_comm> connection_;
};
} // namespace

TEST_F(client_comm_test, asks_for_an_id_and_gives_it_back) {
    {
        auto first = server_.connect();
        EXPECT_EQ(client_comm::client_id, 7);
        auto second = server_.connect();
        const std::vector<std::string> requests = server_.take_all_requests();
        ASSERT_EQ(requests.size(), 1U) << "the second connection uses the id of the first";
        const data_struct header = header_of(requests[0]);
        EXPECT_EQ(requests[0].size(), 52U);
        EXPECT_EQ(header.command, 60138);
        EXPECT_EQ(header.sub_command, 1);
        EXPECT_EQ(header.client_id, 0);
        EXPECT_EQ(requests[0].substr(44, 4), std::string(4, '\0'));
    }
    const std::vector<std::string> requests = server_.take_all_requests();
    ASSERT_EQ(requests.size(), 1U) << "only the first connection destroyed gives it back";
    EXPECT_EQ(requests[0].size(), 49U);
    EXPECT_EQ(header_of(requests[0]).sub_command, 2);
    EXPECT_EQ(header_of(requests[0]).client_id, 7);
    EXPECT_EQ(requests[0][44], 7);
    EXPECT_EQ(client_comm::client_id, 0);
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{"4 MONCL_COMM: Client get new id 7",
                                                      "4 MONCL_COMM: Client back id 7"}));
}

TEST_F(client_comm_test, carries_on_without_an_id) {
    server_.granted_id = 0;
    auto connection = server_.connect();
    EXPECT_TRUE(log_.has("6 MONCL_COMM: Recv client_id is Unavailable"));
    EXPECT_GT(ask(*connection), 0);
    connection_ = connection;
}

TEST_F(client_comm_test, keeps_the_id_that_cannot_be_given_back) {
    auto connection = server_.connect();
    server_.script_handshake();
    server_.next({error_packet(2, -5)});
    EXPECT_EQ(connection->back_client_id(), -5);
    EXPECT_TRUE(log_.has("6 MONCL_COMM: Back request id failed -5"));
    EXPECT_EQ(client_comm::client_id, 7);
    close_at_once(*connection);
    EXPECT_EQ(connection->back_client_id(), -2);
    EXPECT_TRUE(log_.has("6 MONCL_COMM: Send back id failed -2"));
    client_comm::client_id = 0;
}

TEST_F(client_comm_test, sends_48_bytes_and_the_payload) {
    client_comm& connection = connected();
    unsigned char bytes[1025];
    std::iota(std::begin(bytes), std::end(bytes), static_cast<unsigned char>(1));
    for (unsigned size : {0U, 4U, 1024U}) {
        const auto before = connection.get_send_time_us();
        ASSERT_EQ(connection.send_msg_to_server(-3, 77, bytes, size), 0);
        EXPECT_GT(connection.get_send_time_us(), before);
        ASSERT_GT(connection.recv_msg_from_server(), 0);
        const std::string request = server_.take_requests().at(0);
        const data_struct header = header_of(request);
        EXPECT_EQ(request.size(), 48 + size);
        EXPECT_EQ(header.command, -3);
        EXPECT_EQ(header.sub_command, 77);
        EXPECT_EQ(header.msg_len, static_cast<int>(size));
        EXPECT_EQ(header.msg_type, '0');
        EXPECT_EQ(header.command_type, '0');
        EXPECT_EQ(header.sum_packet + header.cur_packet, 0);
        EXPECT_EQ(header.client_id, 7);
        EXPECT_EQ(header.crc, 0U);
        EXPECT_EQ(request.substr(44, size), std::string(bytes, bytes + size));
    }
    EXPECT_EQ(connection.send_msg_to_server(1, 1, bytes, 1025), -1);
    EXPECT_TRUE(log_.has("6 MONCL_COMM: client_comm send support max len is 1024"));
    EXPECT_TRUE(server_.take_requests().empty());
}

// The very bytes that docs/protocol.md shows.
TEST_F(client_comm_test, sends_the_bytes_of_the_documented_example) {
    client_comm& connection = connected();
    const unsigned char pid[4] = {0xD2, 0x04, 0, 0};
    ASSERT_EQ(connection.send_msg_to_server(0xAE02, 3, pid, 4), 0);
    data_struct* sent = connection.get_send_data();
    const timeval when = sent->time;
    ASSERT_GT(connection.recv_msg_from_server(), 0);
    std::string request = server_.take_requests().at(0);
    EXPECT_EQ(request.substr(24, 16), std::string(reinterpret_cast<const char*>(&when), 16));
    request.replace(24, 16, 16, '\0');
    const unsigned char expected[52] = {
        0x02, 0xAE, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0, 0x30, 0, 0, 0, 0, 0, 0x30, 7, 0,    0,    0, 0,
        0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,    0, 0, 0, 0, 0, 0,    0, 0xD2, 0x04, 0, 0};
    EXPECT_EQ(request, std::string(expected, expected + 52));
}

TEST_F(client_comm_test, judges_answers) {
    const std::string text = "0123456789";
    auto with = [](int msg_len, std::size_t size, unsigned crc = 0) {
        packet_options how;
        how.msg_len = msg_len;
        how.size = size;
        how.crc = crc;
        return how;
    };
    const struct {
        const char* name;
        std::string answer;
        int result;
        std::string shown; // what the payload starts with; zeros must follow
        const char* logged;
    } cases[] = {
        {"good", packet(1, text), 8240, text, nullptr},
        {"shorter msg_len", packet(1, text, with(4, 8240)), 8240, "0123", nullptr},
        {"msg_len beyond the bytes carried", packet(1, text, with(500, 54)), 54, text, nullptr},
        {"header alone", packet(1, "", with(8192, 44)), 44, "", nullptr},
        {"full payload", packet(1, std::string(8192, 'a')), 8240, std::string(8192, 'a'), nullptr},
        {"msg_len that announces parts", packet(1, text, with(8193, 8240)), 8240, text, nullptr},
        {"longer than a frame", packet(1, text, with(10, 9000)), 9000, text, nullptr},
        {"checksum", packet(1, text, with(4, 8240, 0x80000001)), -4, "",
         "crc error, compute crc is 0 , receive crc is -2147483647"},
        {"server error", error_packet(1, -5), -5, "", "Handle request return -5"},
        {"server error like a time-out", error_packet(1, -3), -3, "", "Handle request return -3"},
        {"runt", packet(1, "", with(4, 43)), -1, "",
         "zmq_recv error, frame of 43 bytes is shorter than its header"},
        {"nothing", std::string(), -1, "",
         "zmq_recv error, frame of 0 bytes is shorter than its header"},
    };
    client_comm& connection = connected();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        log_ = log_capture();
        server_.next({packet(1, std::string(8192, 'z'))}); // would show through
        ASSERT_EQ(ask(connection), 8240);
        const auto before = connection.get_recv_time_us();
        server_.next({c.answer});
        EXPECT_EQ(ask(connection), c.result);
        EXPECT_GE(connection.get_recv_time_us(), before);
        if (c.result >= 0) {
            EXPECT_EQ(payload(connection, c.shown.size()), c.shown);
            EXPECT_EQ(payload(connection).substr(c.shown.size()),
                      std::string(payload_size + 4 - c.shown.size(), '\0'));
        }
        const std::vector<std::string> expected =
            c.logged == nullptr
                ? std::vector<std::string>()
                : std::vector<std::string>{std::string("6 MONCL_COMM: ") + c.logged};
        EXPECT_EQ(log_.lines(), expected);
    }
}

TEST_F(client_comm_test, times_out_and_then_refuses_to_send) {
    client_comm& connection = connected();
    server_.next({});
    EXPECT_EQ(ask(connection), -3);
    EXPECT_TRUE(log_.has("6 MONCL_COMM: zmq_poll timeout, please check connection with 127.0.0.1:" +
                         std::to_string(server_.port())));
    EXPECT_EQ(connection.send_msg_to_server(1, 1, nullptr, 0), -2);
    close_at_once(connection);
    EXPECT_EQ(connection.connect_to_server(), 0);
    EXPECT_EQ(ask(connection), 8240);
}

TEST_F(client_comm_test, joins_parts) {
    const std::vector<std::string> texts = {std::string(8192, 'a'), std::string(8192, 'b'), "end"};
    packet_options announced;
    announced.msg_len = 2 * 8192 + 3;
    const answer_packets parts = {packet(9, texts[0], announced), packet(9, texts[1]),
                                  packet(9, texts[2])};
    packet_options cut;
    cut.size = 50;
    packet_options wrong;
    wrong.crc = 1;
    packet_options runt;
    runt.size = 10;
    const struct {
        const char* name;
        answer_packets answer;
        bool whole;
        int room;
        int result;
        std::size_t filled; // bytes of the text that arrive
        const char* logged;
    } cases[] = {
        {"to the last part", parts, true, 3 * 8192, 0, 2 * 8192 + 3, nullptr},
        {"and one more by default", parts, false, 4 * 8192, -1, 2 * 8192 + 3,
         "zmq_recv error, Operation cannot be accomplished in current state"},
        {"a single part", {packet(9, "one")}, true, 8192, 0, 0, nullptr},
        {"too little room", parts, true, 3 * 8192 - 1, -1, 2 * 8192,
         "answer does not fit into 24575 bytes"},
        {"no room at all", parts, true, 8191, -1, 0, "answer does not fit into 8191 bytes"},
        {"a part cut short",
         {parts[0], packet(9, "bbbbbb", cut), parts[2]},
         true,
         3 * 8192,
         0,
         8192 + 6,
         nullptr},
        {"a wrong checksum",
         {parts[0], packet(9, "", wrong)},
         true,
         3 * 8192,
         -1,
         8192,
         "crc error, compute crc is 0 , receive crc is 1"},
        {"a runt",
         {parts[0], packet(9, "", runt)},
         true,
         3 * 8192,
         -1,
         8192,
         "zmq_recv error, frame of 10 bytes is shorter than its header"},
    };
    const std::string whole = texts[0] + texts[1] + texts[2];
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        client_comm& connection = connected(c.whole);
        server_.next(c.answer);
        EXPECT_EQ(ask(connection), 8240);
        std::vector<unsigned char> room(static_cast<std::size_t>(c.room) + 1, '!');
        EXPECT_EQ(connection.recv_more_msg(room.data(), c.room), c.result);
        EXPECT_EQ(std::string(room.begin(), room.begin() + static_cast<long>(c.filled)),
                  whole.substr(0, c.filled));
        EXPECT_EQ(room.back(), '!') << "wrote past the room";
        EXPECT_EQ(log_.lines().empty() ? "" : log_.lines().back(),
                  c.logged == nullptr ? "" : std::string("6 MONCL_COMM: ") + c.logged);
        close_at_once(connection);
    }
}

TEST_F(client_comm_test, leaves_nothing_behind_after_a_failed_connect) {
    client_comm connection("no such host name", 1);
    EXPECT_EQ(connection.get_socket(), nullptr);
    EXPECT_EQ(connection.connect_to_server(), -3);
    EXPECT_TRUE(log_.has("6 MONCL_COMM: zmq_connect error, Invalid argument"));
    EXPECT_EQ(connection.get_socket(), nullptr);
    client_comm::client_id = 9; // must not make anything below wait for a peer
    EXPECT_EQ(connection.send_msg_to_server(1, 1, nullptr, 0), -2);
    EXPECT_EQ(connection.recv_msg_from_server(), -3);
    EXPECT_EQ(connection.close_connect(), -1);
    client_comm::client_id = 0;
}

TEST_F(client_comm_test, clears_socket_when_closed) {
    client_comm& connection = connected();
    EXPECT_NE(connection.get_socket(), nullptr);
    EXPECT_EQ(connection.close_connect(), 0);
    EXPECT_EQ(connection.get_socket(), nullptr);
}

TEST_F(client_comm_test, reports_a_server_that_is_not_there) {
    int port = 0;
    {
        scripted_server gone;
        port = gone.port();
    }
    client_comm connection("127.0.0.1", port);
    EXPECT_EQ(connection.connect_to_server(), -3);
    EXPECT_EQ(log_.lines(),
              (std::vector<std::string>{
                  "6 MONCL_COMM: zmq_poll timeout, please check connection with 127.0.0.1:" +
                      std::to_string(port),
                  "6 MONCL_COMM: Recv request id failed -3"}));
    close_at_once(connection);
}
