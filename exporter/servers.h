// How the exporter asks a server: the one place where connections are made.
#ifndef MONCL_EXPORTER_SERVERS_H
#define MONCL_EXPORTER_SERVERS_H

#include "endpoint.h"
#include "server_source.h"

#include <memory>
#include <vector>

namespace exporter {

/// What all servers are asked with.
struct server_access {
    std::size_t rows = 20; ///< most processes in a table of busiest ones
    /// Of the targets of probes; null: they are asked in plain.
    std::shared_ptr<const tools::encryption> target_keys;
};

/// Whether the exporter can ask for @p what: not for subjects that this program answers by itself,
/// nor for those about a process that a user has to name.
bool is_served(const tools::subject& what);

/// Every subject that is served.
std::vector<const tools::subject*> served_subjects();

/// A source of @p subjects; connects when it is asked.
std::unique_ptr<tools::server_source>
open_server(const tools::endpoint& at, const server_access& access, tools::server_plan plan);

} // namespace exporter

#endif
