// The counts as the text that clients read.
#include "server_counts.h"

namespace monsrv {

std::string text_of(const server_counts& counts) {
    std::string text;
    const auto add = [&text](const char* name, std::uint64_t count) {
        text += name + (" " + std::to_string(count)) + "\n";
    };
    add("requests", counts.requests);
    add("refused", counts.refused);
    add("slow", counts.slow);
    add("malformed", counts.malformed);
    add("dropped_requests", counts.dropped_requests);
    add("dropped_answers", counts.dropped_answers);
    add("refused_connections", counts.refused_connections);
    add("connections", counts.connections);
    add("held_ids", counts.held_ids);
    return text;
}

} // namespace monsrv
