// Asking one server for scrapes: a thread with a connection that stays open between them.
#ifndef MONCL_EXPORTER_SCRAPE_WORKER_H
#define MONCL_EXPORTER_SCRAPE_WORKER_H

#include "servers.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace exporter {

using clock = std::chrono::steady_clock;
using subject_list = std::vector<const tools::subject*>;

/// One round of queries. Fields are the worker's until it is done, then nobody changes them.
struct scrape {
    subject_list subjects;
    clock::time_point deadline;
    tools::report got;
    bool done = false;
};

/// Asks one server, one scrape after the other. Starts asking when it is asked to.
class scrape_worker {
public:
    scrape_worker(const tools::endpoint& at, const server_access& access);
    /// Waits for the query that is under way, at most about a second.
    ~scrape_worker();
    scrape_worker(const scrape_worker&) = delete;
    scrape_worker& operator=(const scrape_worker&) = delete;

    /// Orders a scrape; of several that wait for the same subjects only one is made.
    std::shared_ptr<scrape> order(const subject_list& subjects, clock::time_point deadline);
    /// Waits for @p ordered until its deadline. @return whether it is done
    bool wait_for(const scrape& ordered, clock::time_point deadline);
    /// Ends the waiting of all; nothing is asked any more.
    void stop();

    const std::string& host() const { return source_->host(); }
    std::string away_text() const { return source_->away_text(); }
    clock::time_point last_order() const;

private:
    /// An answer that need not be asked for each time.
    struct lasting {
        clock::time_point until;
        tools::answer got;
    };

    void run();
    tools::report ask(const scrape& ordered);
    void keep(const tools::answer& got);

    std::unique_ptr<tools::server_source> source_;  // the thread's
    std::map<const tools::subject*, lasting> kept_; // the thread's
    mutable std::mutex lock_;                       // of the rest
    std::condition_variable changed_;
    std::deque<std::shared_ptr<scrape>> orders_;
    clock::time_point last_order_ = clock::now();
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace exporter

#endif
