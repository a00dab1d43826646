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
    std::uint8_t payload[] = {1, 2, 3};
    parser->result = 1; // a decode that returns more than 0 is a success
    with.server.next_text(6, "again");
    EXPECT_EQ(with.sent(with.m.get_req_info(6, payload, 3, parser, nullptr)), "1267:6=010203");
    EXPECT_EQ(with.log.take(), "");
    parser->result = -9;
    EXPECT_EQ(with.m.get_req_info(5, payload, 3, parser, &out), -9);
    EXPECT_EQ(with.log.take(), "6 OWN: Handle request error with -9\n");
    EXPECT_EQ(out.str() + parser->word, "word: helloagain");
}
