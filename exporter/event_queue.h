// The events that one reader of a stream has still to get.
#ifndef MONCL_EXPORTER_EVENT_QUEUE_H
#define MONCL_EXPORTER_EVENT_QUEUE_H

#include "subject.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace exporter {

/// A queue of server-sent events, bounded in bytes: a reader that does not keep up is disconnected.
/// Any thread may call this, but only one thread calls `read`.
class event_queue {
public:
    /// @param wanted  what the reader wants samples of
    /// @param of_host whose samples and states it wants; empty: all
    event_queue(std::vector<const tools::subject*> wanted, std::string of_host)
        : subjects(std::move(wanted)), host(std::move(of_host)) {}

    /// Adds an event with @p data, which is one line without its end.
    void push(const char* event, std::shared_ptr<const std::string> data);
    /// Nothing follows: the reader is told so.
    void close();
    /// Copies what is queued, and waits until there is at least a byte. While it waits it sends a
    /// comment every few seconds, so that each side notices when the other has gone. @return 0
    /// after the end
    std::size_t read(char* into, std::size_t size);
    /// Becomes true when the reader was given up.
    std::shared_ptr<std::atomic<bool>> given_up() const { return given_up_; }

    const std::vector<const tools::subject*> subjects;
    const std::string host;

private:
    struct entry {
        std::string head; ///< `event: sample`, `data: `
        std::shared_ptr<const std::string> data;
    };

    std::mutex lock_;
    std::condition_variable filled_;
    std::deque<entry> events_;
    std::size_t bytes_ = 0;
    std::string taken_; // of the event that is being sent
    std::size_t sent_ = 0;
    bool closed_ = false;
    std::shared_ptr<std::atomic<bool>> given_up_ = std::make_shared<std::atomic<bool>>(false);
};

} // namespace exporter

#endif
