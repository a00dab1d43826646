// The request cycle, with a manager and a parser of the test's own; and managers without a server.
#include "cpu_stat_manager.h"
#include "manager_support.h"
#include "net_stat_manager.h"
#include "nnu_ratio_manager.h"
#include "peri_stat_manager.h"
#include "sys_info_manager.h"
#include "vio_info_manager.h"

#include <future>

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

// What the constructor of a manager throws that finds no server.
template<class Manager>
std::string thrown_by() {
    try {
        Manager("127.0.0.1", -1);
    } catch (const char* text) {
        return text;
    }
    return "nothing";
}
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
    const std::tuple<int, answer_packets, int, std::string> failures[] = {
        {1025, {}, 0, "Send message error with -1"},
        {-1, {}, 0, "Send message error with -1"},
        {4, {error_packet(5, -7)}, 0, "Receive message error with -7"},
        {4, {packet(5, "x")}, -9, "Handle request error with -9"},
        {4, {}, 0, "Receive message error with -3"}}; // last: it spoils the socket
    for (const auto& [size, answer, decode, logged] : failures) {
        if (size == 4)
            with.server.next(answer);
        parser->result = decode;
        const int result = with.m.get_req_info(5, payload, size, parser, &out);
        EXPECT_EQ(std::to_string(result), logged.substr(logged.size() - 2));
        EXPECT_NE(log.take().find("6 OWN: " + logged + "\n"), std::string::npos) << logged;
        ASSERT_TRUE(with.m.req_lock.try_lock());
        with.m.req_lock.unlock();
    }
    EXPECT_EQ(out.str() + parser->word, "word: helloagain");
}

TEST(request_handler, keeps_the_cycles_of_several_threads_apart) {
    served<own_manager> with;
    with.server.answer([](int, int sub, const std::string&) {
        return answer_packets{packet(sub, std::to_string(sub))};
    });
    std::vector<std::future<void>> threads;
    for (int t = 1; t <= 4; ++t)
        threads.push_back(std::async(std::launch::async, [&with, t] {
            auto parser = std::make_shared<word_parser>();
            for (int i = 0; i < 100; ++i) {
                ASSERT_EQ(with.m.get_sys_info(t, parser, nullptr), 0);
                ASSERT_EQ(parser->word, std::to_string(t));
            }
        }));
}

TEST(request_handler, managers_without_a_server_say_who_they_are) {
    EXPECT_EQ(thrown_by<cpu_stat_manager>(), "CPU connect to server failed");
    EXPECT_EQ(thrown_by<peri_stat_manager>(), "PERI connect to server failed");
    EXPECT_EQ(thrown_by<net_stat_manager>(), "NET connect to server failed");
    EXPECT_EQ(thrown_by<nnu_ratio_manager>(), "NNU connect to server failed");
    EXPECT_EQ(thrown_by<vio_info_manager>(), "VIO connect to server failed");
    EXPECT_EQ(thrown_by<sysinfo_manager>(), "SYSINFO connect to server failed");
    log_capture log;
    { cpu_stat_manager leaves_silently; }
    EXPECT_EQ(peri_stat_manager().get_meminfo(nullptr), -2);
    EXPECT_EQ(log.take(), "6 MONCL_PERI: Send message error with -2\n");
}
