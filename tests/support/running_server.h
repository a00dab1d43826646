// A monitoring server in a thread of the test.
#ifndef MONCL_TESTS_RUNNING_SERVER_H
#define MONCL_TESTS_RUNNING_SERVER_H

#include "local_server.h"

#include "scripted_server.h"

/// Samples this host, or the machine whose files lie below a folder.
struct running_server : tools::local_server {
    explicit running_server(const std::string& root = "/")
        : running_server(monsrv::server_options{root}) {}
    explicit running_server(const monsrv::server_options& options) : local_server(options) {
        client_comm::client_id = 0; // of an earlier server of this process
    }
    /// A connection to this server that takes answers of several parts whole.
    std::shared_ptr<client_comm> connect() const { return connect_to(port(), true); }
};

#endif
