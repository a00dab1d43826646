// Making sources.
#include "servers.h"

namespace exporter {

bool is_served(const tools::subject& what) {
    return !what.asks_nobody && !what.needs_pids;
}

std::vector<const tools::subject*> served_subjects() {
    std::vector<const tools::subject*> served;
    for (const tools::subject* each : tools::all_subjects())
        if (is_served(*each))
            served.push_back(each);
    return served;
}

std::unique_ptr<tools::server_source>
open_server(const tools::endpoint& at, const server_access& access, tools::server_plan plan) {
    plan.chosen.rows = access.rows;
    return std::make_unique<tools::server_source>(at, at.text(), std::move(plan));
}

} // namespace exporter
