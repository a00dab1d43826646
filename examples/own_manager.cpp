// A manager of your own: asks for the text of /proc/meminfo and decodes what the library leaves
// out, the swap space. Any query of the protocol can be asked in this way.
#include "request_handler.h"

#include <cstdlib>
#include <iostream>
#include <optional>
#include <sstream>

namespace {
struct swap_parser {
    std::optional<unsigned long> total_kb; // nothing: the text has no such line
    std::optional<unsigned long> free_kb;

    void parse(const char* text) {
        *this = {};
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string key;
            unsigned long kb = 0;
            if (!(words >> key >> kb))
                continue;
            if (key == "SwapTotal:")
                total_kb = kb;
            else if (key == "SwapFree:")
                free_kb = kb;
        }
    }
};
} // namespace

// Two specialisations are all that the request cycle needs; they must stand before its first use.
namespace ns_req_template {
template<>
int request_handler::handle_request(std::shared_ptr<swap_parser> parser) {
    // The payload always ends in a zero byte. It is overwritten by the next answer.
    parser->parse(reinterpret_cast<const char*>(client->get_recv_data()->msg));
    return parser->total_kb && parser->free_kb ? 0 : -1;
}
template<>
void request_handler::show_result(std::shared_ptr<swap_parser> parser, std::ostream& out) {
    out << "swap: " << *parser->total_kb << " kB, " << *parser->free_kb << " kB free\n";
}
} // namespace ns_req_template

namespace {
class swap_manager : public ns_req_template::request_handler {
public:
    swap_manager(const std::string& host, int port) {
        request_cmd = peripheral_command;
        manager = this;
        log_tag = "SWAP";
        connect(std::make_shared<client_comm>(host, port), "SWAP connect to server failed");
    }
    int get_swap(std::ostream* out) {
        return get_sys_info(peripheral_request::memory, parser, out);
    }
    std::shared_ptr<swap_parser> parser = std::make_shared<swap_parser>();
};
} // namespace

int main(int argc, char** argv) try {
    swap_manager board(argc > 1 ? argv[1] : "127.0.0.1", argc > 2 ? std::atoi(argv[2]) : 5757);
    return board.get_swap(&std::cout) < 0 ? 1 : 0;
} catch (const char* failure) {
    std::cerr << failure << "\n";
    return 1;
}
