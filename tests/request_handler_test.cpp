// The request cycle, with a manager and a parser of the test's own.
#include "request_handler.h"

#include "log_capture.h"
#include "scripted_server.h"

#include <gtest/gtest.h>
#include <sstream>
#include <thread>

namespace {
struct word_parser {
    std::string word = "nothing";
    int result = 0;
};

class own_manager : public ns_req_template::request_handler {
public:
    explicit own_manager(std::shared_ptr<client_comm> connection) {
        client = std::move(connection);
        request_cmd = 4711;
        log_tag = "OWN";
    }
};

using parser_handle = std::shared_ptr<word_parser>;
} // namespace

template<>
int ns_req_template::request_handler::handle_request(parser_handle parser) {
    if (parser->result >= 0)
        parser->word = reinterpret_cast<char*>(client->get_recv_data()->msg);
    return parser->result;
}

template<>
void ns_req_template::request_handler::show_result(parser_handle parser, std::ostream& out) {
    out << "word: " << parser->word;
}

TEST(request_handler, sends_receives_decodes_and_reports) {
    log_capture log;
    scripted_server server;
    own_manager manager(server.connect());
    auto parser = std::make_shared<word_parser>();
    log = log_capture();

    server.next_text(5, "hello");
    std::ostringstream out;
    EXPECT_EQ(manager.get_sys_info(5, parser, &out), 0);
    EXPECT_EQ(out.str(), "word: hello");
    std::uint8_t three[3] = {1, 2, 3};
    parser->result = 1; // a decode that returns more than 0 is a success
    server.next_text(6, "again");
    EXPECT_EQ(manager.get_req_info(6, three, 3, parser, nullptr), 0);
    EXPECT_EQ(parser->word, "again");
    const std::vector<std::string> requests = server.take_requests();
    EXPECT_EQ(header_of(requests.at(0)).command, 4711);
    EXPECT_EQ(header_of(requests.at(0)).sub_command, 5);
    EXPECT_EQ(requests.at(0).substr(44), std::string(8, '\0'));
    EXPECT_EQ(requests.at(1).substr(44, 3), "\1\2\3");
    EXPECT_TRUE(log.lines().empty());

    std::uint8_t long_payload[1025] = {};
    const struct {
        int size;
        answer_packets answer;
        int decode;
        int result;
        const char* logged;
    } failures[] = {
        {1025, {}, 0, -1, "6 OWN: Send message error with -1"},
        {-1, {}, 0, -1, "6 OWN: Send message error with -1"},
        {4, {error_packet(5, -7)}, 0, -7, "6 OWN: Receive message error with -7"},
        {4, {packet(5, "x")}, -9, -9, "6 OWN: Handle request error with -9"},
        {4, {}, 0, -3, "6 OWN: Receive message error with -3"}, // last: it spoils the socket
    };
    for (const auto& c : failures) {
        log = log_capture();
        if (c.size == 4)
            server.next(c.answer);
        parser->result = c.decode;
        EXPECT_EQ(manager.get_req_info(5, long_payload, c.size, parser, &out), c.result);
        EXPECT_TRUE(log.has(c.logged)) << c.logged;
        EXPECT_EQ(parser->word, "again");
        EXPECT_TRUE(manager.req_lock.try_lock());
        manager.req_lock.unlock();
    }
    EXPECT_EQ(out.str(), "word: hello");
    close_at_once(*manager.client);
}

TEST(request_handler, refuses_queries_without_a_connection) {
    log_capture log;
    own_manager manager(nullptr);
    EXPECT_EQ(manager.get_sys_info(1, std::make_shared<word_parser>(), nullptr), -2);
    EXPECT_TRUE(log.has("6 OWN: Send message error with -2"));
}

TEST(request_handler, keeps_the_cycles_of_several_threads_apart) {
    scripted_server server;
    server.answer([](int, int sub_command, const std::string&) {
        return answer_packets{packet(sub_command, std::to_string(sub_command))};
    });
    own_manager manager(server.connect());
    std::vector<std::thread> threads;
    for (int t = 1; t <= 4; ++t)
        threads.emplace_back([&manager, t] {
            auto parser = std::make_shared<word_parser>();
            for (int i = 0; i < 100; ++i) {
                ASSERT_EQ(manager.get_sys_info(t, parser, nullptr), 0);
                ASSERT_EQ(parser->word, std::to_string(t));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    close_at_once(*manager.client);
}
