// One server as the subjects see it: the library's managers over one connection.
#ifndef MONCL_TOOLS_BOARD_H
#define MONCL_TOOLS_BOARD_H

#include "cpu_stat_manager.h"
#include "endpoint.h"
#include "net_stat_manager.h"
#include "nnu_ratio_manager.h"
#include "peri_stat_manager.h"
#include "selection.h"
#include "sys_info_manager.h"
#include "vio_info_manager.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tools {

/// The queries of `sysinfo_manager` over a connection that is shared, which that class does not
/// offer.
class system_queries : public ns_req_template::request_handler {
public:
    system_queries();

    /// @return 0 or the negative code of the query
    int get_version();
    /// @return the number of possible CPUs or the negative code of the query
    int get_cpu_possible();
    /// Asks for the frequency of CPU 0 to 7.
    int get_cpu_freq(int cpu);

    std::shared_ptr<cpu_freq_parser> freq = std::make_shared<cpu_freq_parser>();
    std::shared_ptr<cpu_possible_parser> possible = std::make_shared<cpu_possible_parser>();
    std::shared_ptr<version_parser> version = std::make_shared<version_parser>();
};

/// How the queries of one subject ended.
struct query_record {
    std::uint64_t asked = 0;
    std::uint64_t failed = 0;
    bool answered = false;                  ///< the latest
    std::optional<double> duration_seconds; ///< of the latest; nothing if the server is away
};

/// One server. Belongs to one thread at a time, like the connection in it.
class board {
public:
    /// Does not connect yet.
    explicit board(endpoint at);
    /// Gives the client id back if the server answered last time, and closes.
    ~board();
    board(const board&) = delete;
    board& operator=(const board&) = delete;

    const endpoint& at() const { return at_; }

    /// Connects, or starts over on a new socket if the server did not answer last time.
    /// @return whether the server is taken to be there
    bool connect();
    /// Whether the negative @p code of a query is the server's own answer. If it is not, the
    /// connection is of no use until the next `connect`.
    bool is_servers_own(int code);
    /// Why the server does not answer, as far as that is known, and the remedy.
    std::string away_text() const;
    /// Whether the server is taken to be there; asks nothing.
    bool is_connected() const { return connected_; }

    /// Starts a new round of queries: what `once` remembers is forgotten.
    void begin_round() { done_.clear(); }
    /// Runs @p query unless one of that name succeeded in this round. For answers from which
    /// several subjects are made.
    /// @return its result, or that of the earlier run
    int once(const std::string& name, const std::function<int()>& query);
    /// Runs @p query unless one of that name succeeded over this connection within the last minute.
    /// For answers that hardly ever change.
    /// @return as `once`
    int lately(const std::string& name, const std::function<int()>& query);

    /// Asks for the status of the process @p pid, once in a round.
    /// @return 0 or the negative code of the query
    int get_process_status(int pid);
    /// Asks for the table of busiest processes, once in a round: its figures are means over the
    /// time since this client asked last.
    /// @return 0 or the negative code of the query
    int get_busiest_processes();

    // For the library's own reports.
    selection chosen;                ///< what a user asked for
    std::vector<std::string> faults; ///< what of it the server does not have, as in a sample
    std::shared_ptr<client_comm> connection;
    system_queries system;
    cpu_stat_manager cpus;
    peri_stat_manager peripherals;
    net_stat_manager network;
    nnu_ratio_manager nnu;
    vio_info_manager video;
    /// Answers of `get_process_status` by pid; without a sample if it could not be decoded.
    std::map<int, std::shared_ptr<process_stat_parser>> statuses;
    top_pid_info busiest{};                      ///< latest answer of `get_busiest_processes`
    std::map<std::string, query_record> queries; ///< by subject

private:
    endpoint at_;
    bool connected_ = false;
    std::map<std::string, int> done_; // results of this round

    struct lasting {
        std::chrono::steady_clock::time_point until;
        int result;
    };
    std::map<std::string, lasting> lasting_; // of this connection
};

} // namespace tools

#endif
