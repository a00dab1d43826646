// One run of the program: the server it asks, and asking it again and again.
#ifndef MONCL_TOOLS_SESSION_H
#define MONCL_TOOLS_SESSION_H

#include "client_comm.h"
#include "command_line.h"
#include "stop_signal.h"

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace tools {

class local_server;

/// What a command asks for, at each report.
struct subject {
    /// Asks, and reports to the stream unless that is null.
    /// @return 0 or more, or the negative code of a failed query
    std::function<int(std::ostream*)> query;
    /// The connections the query uses.
    std::vector<std::shared_ptr<client_comm>> connections;
    /// Whether a figure needs two samples: then the first is taken without a report.
    bool compares = false;
    /// Tells a server that came back what it must know; may be null.
    std::function<int()> introduce = nullptr;
    /// Tells that nothing is left to ask for, which ends it all; may be null.
    std::function<bool()> done = nullptr;
};

/// The server asked, the streams written to and the signal that ends it all.
class session {
public:
    /// Starts a server inside the program if @p from names none, and says so on @p err.
    /// @throws std::exception if it cannot be started
    session(const source& from, std::ostream& out, std::ostream& err);
    ~session();

    const std::string& host() const { return host_; }
    int port() const { return port_; }
    std::ostream& out() { return out_; }
    std::ostream& err() { return err_; }

    /// A connection to the server, not connected yet, that takes answers of several parts whole.
    std::shared_ptr<client_comm> new_connection() const;

    /// Asks and reports as @p when says. A server that goes away is announced once and asked again
    /// at every report until it is back.
    /// @return the exit status
    int repeat(const schedule& when, const subject& what);

private:
    bool ask(const subject& what, std::ostream* report);
    void reconnect(const subject& what);
    void complain(const subject& what, int code);
    bool end_report();

    std::ostream& out_;
    std::ostream& err_;
    stop_signal stop_;
    std::unique_ptr<local_server> server_;
    std::string host_;
    int port_;
    bool away_ = false;     // the server did not answer last time
    bool compared_ = false; // a sample to compare with has been taken
};

} // namespace tools

#endif
