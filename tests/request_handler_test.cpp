// The request cycle, with a manager and a parser of the test's own; and managers without a server.
#include "manager_support.h"
#include "net_stat_manager.h"
#include "nnu_ratio_manager.h"
#include "peri_stat_manager.h"
#include "sys_info_manager.h"
#include "vio_info_manager.h"

#include "cpu_stat_manager.h"

namespace {
struct word_parser {
    std::string word = "nothing";
    int result = 0;
};
using parser_handle = std::shared_ptr<word_parser>;

struct own_manager : ns_req_template::request_handler {
    explicit own_manager(std::shared_ptr<client_comm> connection) {
        client = std::move(connection);
        request_cmd = 4711;
        log_tag = "OWN";
    }
};
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
    served<own_manager> with;
    auto parser = std::make_shared<word_parser>();
    std::ostringstream out;
    log_capture log;
    with.server.next_text(5, "hello");
    EXPECT_EQ(with.sent(with.m.get_sys_info(5, parser, &out)), "1267:5");
    std::uint8_t payload[1025] = {1, 2, 3};
    parser->result = 1; // a decode that returns more than 0 is a success
    with.server.next_text(6, "again");
    EXPECT_EQ(with.sent(with.m.get_req_info(6, payload, 3, parser, nullptr)), "1267:6=010203");
    EXPECT_EQ(log.take(), "");
    const struct {
        int size;
        answer_packets answer;
        int decode;
        int result;
        const char* logged;
    } failures[] = {
        {1025, {}, 0, -1, "6 OWN: Send message error with -1\n"},
        {-1, {}, 0, -1, "6 OWN: Send message error with -1\n"},
        {4, {error_packet(5, -7)}, 0, -7, "6 OWN: Receive message error with -7\n"},
        {4, {packet(5, "x")}, -9, -9, "6 OWN: Handle request error with -9\n"},
        {4, {}, 0, -3, "6 OWN: Receive message error with -3\n"}, // last: it spoils the socket
    };
    for (const auto& c : failures) {
        if (c.size == 4)
            with.server.next(c.answer);
        parser->result = c.decode;
        EXPECT_EQ(with.m.get_req_info(5, payload, c.size, parser, &out), c.result);
        EXPECT_NE(log.take().find(c.logged), std::string::npos) << c.logged;
        EXPECT_EQ(parser->word, "again");
        ASSERT_TRUE(with.m.req_lock.try_lock());
        with.m.req_lock.unlock();
    }
    EXPECT_EQ(out.str(), "word: hello");
    EXPECT_EQ(own_manager(nullptr).get_sys_info(1, parser, nullptr), -2);
}

TEST(request_handler, keeps_the_cycles_of_several_threads_apart) {
    served<own_manager> with;
    with.server.answer([](int, int sub, const std::string&) {
        return answer_packets{packet(sub, std::to_string(sub))};
    });
    std::vector<std::thread> threads;
    for (int t = 1; t <= 4; ++t)
        threads.emplace_back([&with, t] {
            auto parser = std::make_shared<word_parser>();
            for (int i = 0; i < 100; ++i) {
                ASSERT_EQ(with.m.get_sys_info(t, parser, nullptr), 0);
                ASSERT_EQ(parser->word, std::to_string(t));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST(request_handler, managers_without_a_server_say_who_they_are) {
    EXPECT_EQ(thrown_by<cpu_stat_manager>(), repeated("CPU connect to server failed", 2));
    EXPECT_EQ(thrown_by<peri_stat_manager>(), repeated("PERI connect to server failed", 2));
    EXPECT_EQ(thrown_by<net_stat_manager>(), repeated("NET connect to server failed", 2));
    EXPECT_EQ(thrown_by<nnu_ratio_manager>(), repeated("NNU connect to server failed", 2));
    EXPECT_EQ(thrown_by<vio_info_manager>(), repeated("VIO connect to server failed", 2));
    log_capture log;
    EXPECT_EQ(peri_stat_manager().get_meminfo(nullptr), -2);
    EXPECT_EQ(net_stat_manager().add_net_monitor_process(1), -2);
    EXPECT_EQ(nnu_ratio_manager().get_nnu0_ratio(nullptr), -2);
    EXPECT_EQ(vio_info_manager().get_isp_info(), -2);
    std::string expected;
    for (const char* tag : {"PERI", "NET", "NNU", "VIO"})
        expected += std::string("6 MONCL_") + tag + ": Send message error with -2\n";
    EXPECT_EQ(log.take(), expected);
    { cpu_stat_manager leaves_silently; }
    EXPECT_EQ(log.take(), "");
}
