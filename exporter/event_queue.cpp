// Filling and emptying queues of events.
#include "event_queue.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace exporter {

namespace {
constexpr std::size_t most_bytes = 4 << 20;
constexpr std::chrono::seconds silence{4};
} // namespace

void event_queue::push(const char* event, std::shared_ptr<const std::string> data) {
    const std::lock_guard<std::mutex> guard(lock_);
    if (closed_)
        return;
    entry made{"event: " + std::string(event) + "\ndata: ", std::move(data)};
    bytes_ += made.head.size() + made.data->size();
    events_.push_back(std::move(made));
    if (bytes_ > most_bytes) {
        closed_ = true;
        *given_up_ = true;
        events_.clear();
    }
    filled_.notify_all();
}

void event_queue::close() {
    const std::lock_guard<std::mutex> guard(lock_);
    closed_ = true;
    filled_.notify_all();
}

std::size_t event_queue::read(char* into, std::size_t size) {
    std::unique_lock<std::mutex> guard(lock_);
    if (sent_ == taken_.size()) {
        filled_.wait_for(guard, silence, [this] { return closed_ || !events_.empty(); });
        if (closed_)
            return 0;
        taken_ = ":\n\n";
        sent_ = 0;
        if (!events_.empty()) {
            const entry& next = events_.front();
            taken_ = next.head + *next.data + "\n\n";
            bytes_ -= next.head.size() + next.data->size();
            events_.pop_front();
        }
    }
    const std::size_t part = std::min(size, taken_.size() - sent_);
    std::memcpy(into, taken_.data() + sent_, part);
    sent_ += part;
    return part;
}

} // namespace exporter
