// The queries themselves: how long they take, and which of them fail; and what the server counts of
// itself.
#include "board.h"
#include "request_numbers.h"
#include "subject.h"

#include <array>
#include <sstream>

namespace tools {
namespace {

// Names in the server's text, in the order of the fields below.
constexpr std::array<const char*, 6> count_names{"requests", "refused",     "dropped",
                                                 "slow",     "connections", "held_ids"};
using counts = std::array<value, count_names.size()>;

// Lines "NAME NUMBER"; a name that is not there leaves its count unknown.
counts read_counts(const std::string& text) {
    std::map<std::string, std::uint64_t> named;
    std::istringstream lines(text);
    std::string name;
    for (std::uint64_t number; lines >> name >> number;)
        named[name] = number;
    if (named.count("dropped_requests") != 0 && named.count("dropped_answers") != 0)
        named["dropped"] = named["dropped_requests"] + named["dropped_answers"];
    counts all;
    for (std::size_t i = 0; i < all.size(); ++i)
        if (const auto found = named.find(count_names[i]); found != named.end())
            all[i] = found->second;
    return all;
}

// A server that refuses the query, or does not answer it, is not asked again.
class server_counts {
public:
    counts ask(board& server) {
        if (!is_known_ || !server.is_connected())
            return {};
        client_comm& connection = *server.connection;
        const unsigned char none[4] = {};
        int code = connection.send_msg_to_server(server_command, server_request::counts, none,
                                                 sizeof none);
        if (code >= 0)
            code = connection.recv_msg_from_server();
        if (code < 0) {
            is_known_ = false;
            server.is_servers_own(code);
            return {};
        }
        return read_counts(reinterpret_cast<const char*>(connection.get_recv_data()->msg));
    }

private:
    bool is_known_ = true;
};

// The only row that is there before anything was asked.
void add_server(bool is_connected, const query_record& sum, const counts& of, sample& into) {
    into.add("server", static_cast<unsigned>(is_connected), sum.duration_seconds, sum.asked,
             sum.failed, of[0], of[1], of[2], of[3], of[4], of[5])
        .is_total = true;
}

int ask(board& server, server_counts& own, sample& into) {
    query_record sum;
    for (const auto& [name, each] : server.queries) {
        const subject* about = find_subject(name);
        if (about == nullptr || about->asks_nobody)
            continue;
        into.add(name, static_cast<unsigned>(each.answered), each.duration_seconds, each.asked,
                 each.failed, value(), value(), value(), value(), value(), value());
        if (each.duration_seconds)
            sum.duration_seconds = sum.duration_seconds.value_or(0) + *each.duration_seconds;
        sum.asked += each.asked;
        sum.failed += each.failed;
    }
    const bool is_connected = server.is_connected();
    add_server(is_connected, sum, own.ask(server), into);
    return 0;
}

const subject_registration registered([] {
    subject monitor{
        "monitor",
        "query",
        "Whether the server answers, how long its answers take, and what it counts of itself",
        {label("query", "Query", "Subject asked for; server for all together"),
         gauge("answered", unit::none,
               "Whether the latest query got an answer with figures: 1 or 0")
             .column("answered"),
         gauge("duration_seconds", unit::seconds, "Duration of the latest query").column("seconds"),
         counter("asked", unit::none, "Times asked").column("asked"),
         counter("failed", unit::none, "Times without an answer, or refused").column("failed"),
         counter("server_requests", unit::none, "Requests of all clients").column("requests", 2),
         counter("server_refused", unit::none, "Requests answered with an error")
             .column("refused", 3),
         counter("server_dropped", unit::none, "Requests and answers that came to nothing")
             .column("dropped", 3),
         counter("server_slow", unit::none, "Requests handed to the threads of slow subjects")
             .column("slow", 4),
         gauge("server_connections", unit::none, "Connections to the server now")
             .column("clients", 2),
         gauge("server_held_ids", unit::none, "Client ids that the server has granted now")
             .column("ids", 4)},
        [](const selection&) -> asker {
            return [own = server_counts()](board& server, sample& into) mutable {
                return ask(server, own, into);
            };
        }};
    monitor.place = 200;
    monitor.asks_nobody = true;
    return monitor;
}());

} // namespace
} // namespace tools
