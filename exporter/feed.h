// Samples at a steady interval, of all servers, while somebody wants them.
#ifndef MONCL_EXPORTER_FEED_H
#define MONCL_EXPORTER_FEED_H

#include "event_queue.h"
#include "history.h"
#include "host_states.h"
#include "messages.h"
#include "output.h"
#include "rates.h"
#include "scrape_worker.h"

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace exporter {

/// What the feed does.
struct feed_plan {
    std::vector<tools::endpoint> servers;
    double interval = 1;   ///< seconds
    subject_list recorded; ///< asked for all the time; empty: nothing is
    server_access access;
};

/// Asks each server in a thread of its own. What it gets goes to the history, to the queues of
/// events and to a recording. From any thread.
class feed {
public:
    /// @param kept, states, said outlive this
    /// @param recording takes what is recorded; null for none; outlives this
    feed(feed_plan plan, history& kept, host_states& states, messages& said,
         tools::output* recording);
    ~feed();
    feed(const feed&) = delete;
    feed& operator=(const feed&) = delete;

    /// Asks for what @p queue wants, and fills it, until it is destroyed.
    void fill(const std::shared_ptr<event_queue>& queue);
    /// Asks for @p subjects for some seconds. Waits until each server has been asked for them, or
    /// for about two seconds.
    void want(const subject_list& subjects, const std::string& host);
    /// Takes what somebody else found out about a server. It counts only while the feed does not
    /// ask that server itself.
    void tell(const std::string& host, bool up, const std::string& why);
    /// Closes all queues and ends all waiting.
    void stop();

private:
    struct asked_server {
        tools::endpoint at;
        std::thread thread;
        tools::server_source* source = nullptr;  // while it is asked
        subject_list wanted;                     // of the source
        std::set<const tools::subject*> sampled; // since it is asked
    };

    void run(asked_server& each);
    void ask_while_wanted(asked_server& each, std::unique_lock<std::mutex>& guard);
    subject_list wanted_now();
    void set_wanted(asked_server& each, subject_list wanted);
    void refresh();
    struct forming; // what the thread of a server needs to make samples
    void take(asked_server& each, forming& with, tools::report& got);
    void take_answer(asked_server& each, forming& with, tools::answer& got, bool base);
    void record(const asked_server& each, const tools::report& got);
    void push(const std::string& host, const tools::subject* what, const char* event,
              std::shared_ptr<const std::string> data);

    const feed_plan plan_;
    history& history_;
    host_states& states_;
    messages& messages_;
    std::mutex recording_lock_;
    tools::output* recording_;
    std::mutex lock_; // of the rest
    std::condition_variable changed_;
    std::vector<std::unique_ptr<asked_server>> servers_;
    std::vector<std::weak_ptr<event_queue>> queues_;
    std::map<const tools::subject*, clock::time_point> wanted_until_;
    bool stopping_ = false;
};

} // namespace exporter

#endif
