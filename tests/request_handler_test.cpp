// The request cycle, with a manager and a parser of the test's own.
#include "manager_support.h"

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
    with.server.next_text(5, "hello");
    EXPECT_EQ(with.sent(with.m.get_sys_info(5, parser, &out)), "1267:5");
    std::uint8_t payload[1025] = {1, 2, 3};
    parser->result = 1; // a decode that returns more than 0 is a success
    with.server.next_text(6, "again");
    EXPECT_EQ(with.sent(with.m.get_req_info(6, payload, 3, parser, nullptr)), "1267:6=010203");
    EXPECT_EQ(with.log.take(), "");
    const std::tuple<int, answer_packets, int, std::string> failures[] = {
        {1025, {}, 0, "Send message error with -1"},
        {4, {error_packet(5, -7)}, 0, "Receive message error with -7"},
        {4, {packet(5, "x")}, -9, "Handle request error with -9"},
        {4, {}, 0, "Receive message error with -3"}}; // last: it spoils the socket
    for (const auto& [size, answer, decode, logged] : failures) {
        if (size == 4)
            with.server.next(answer);
        parser->result = decode;
        const int result = with.m.get_req_info(5, payload, size, parser, &out);
        EXPECT_EQ(std::to_string(result), logged.substr(logged.size() - 2));
        EXPECT_NE(with.log.take().find("6 OWN: " + logged + "\n"), std::string::npos) << logged;
    }
    EXPECT_EQ(out.str() + parser->word, "word: helloagain");
}
