// The queries themselves: how long they take, and which of them fail.
#include "board.h"
#include "subject.h"

namespace tools {
namespace {

// The one row that is there also before anything was asked.
void add_server(const board& server, const query_record& sum, sample& into) {
    into.add("server", static_cast<unsigned>(server.is_connected()), sum.duration_seconds,
             sum.asked, sum.failed)
        .is_total = true;
}

int ask(board& server, sample& into) {
    query_record sum;
    for (const auto& [name, each] : server.queries) {
        const subject* about = find_subject(name);
        if (about == nullptr || about->asks_nobody)
            continue;
        into.add(name, static_cast<unsigned>(each.answered), each.duration_seconds, each.asked,
                 each.failed);
        if (each.duration_seconds)
            sum.duration_seconds = sum.duration_seconds.value_or(0) + *each.duration_seconds;
        sum.asked += each.asked;
        sum.failed += each.failed;
    }
    add_server(server, sum, into);
    return 0;
}

const subject_registration registered([] {
    subject monitor{
        "monitor",
        "query",
        "Whether the server answers, and how long its answers take",
        {label("query", "Query", "Subject asked for; server for all together"),
         gauge("answered", unit::none,
               "Whether the latest query got an answer with figures: 1 or 0")
             .column("answered"),
         gauge("duration_seconds", unit::seconds, "Duration of the latest query").column("seconds"),
         counter("asked", unit::none, "Times asked").column("asked"),
         counter("failed", unit::none, "Times without an answer, or refused").column("failed")},
        [](const selection&) -> asker { return ask; }};
    monitor.place = 200;
    monitor.asks_nobody = true;
    return monitor;
}());

} // namespace
} // namespace tools
