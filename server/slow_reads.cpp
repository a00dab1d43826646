// Slow reads in threads of their own.
#include "slow_reads.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <fcntl.h>
#include <mutex>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace monsrv {

namespace {
// A thread that has been busy for so long may hang, so the reads that wait get another thread.
constexpr std::chrono::milliseconds suspicion{10};

slow_reads::outcome do_work(const slow_reads::work& work) {
    try {
        return work();
    } catch (const std::exception&) {
        return {-EIO, {}};
    }
}
} // namespace

// Owned by the threads as well, so that one that hangs can end after everything else is gone.
struct slow_reads::shared_state {
    struct entry {
        bool under_way = false;
        bool finished = false; // ever
        outcome last;
        clock::time_point finish_time;
    };

    bool is_fresh(const entry& e) const {
        return e.finished && clock::now() - e.finish_time < keep;
    }

    std::mutex lock;
    std::condition_variable queued;
    std::condition_variable done;
    std::deque<std::pair<std::string, work>> queue;
    std::map<std::string, entry> entries;
    std::size_t most_threads = 0;
    std::size_t threads = 0;
    std::size_t idle = 0;
    bool stopping = false;
};

slow_reads::slow_reads(std::size_t most_threads) : state_(std::make_shared<shared_state>()) {
    state_->most_threads = most_threads;
}

slow_reads::~slow_reads() {
    std::lock_guard<std::mutex> guard(state_->lock);
    state_->stopping = true;
    state_->queued.notify_all();
}

std::map<std::string, slow_reads::outcome>
slow_reads::run(const std::map<std::string, work>& wanted) {
    shared_state& s = *state_;
    const clock::time_point deadline = clock::now() + patience;
    std::unique_lock<std::mutex> guard(s.lock);
    std::vector<const shared_state::entry*> awaited;
    for (const auto& [key, read] : wanted) {
        shared_state::entry& entry = s.entries[key];
        if (entry.under_way)
            continue;
        entry.under_way = true;
        s.queue.emplace_back(key, read);
        awaited.push_back(&entry);
    }
    s.queued.notify_all();
    const auto all_done = [&awaited] {
        return std::none_of(awaited.begin(), awaited.end(),
                            [](const auto* entry) { return entry->under_way; });
    };
    while (!all_done() && clock::now() < deadline) {
        if (!s.queue.empty() && s.idle == 0)
            add_thread();
        s.done.wait_until(guard, std::min(deadline, clock::now() + suspicion), all_done);
    }

    std::map<std::string, outcome> outcomes;
    for (const auto& each : wanted) {
        const shared_state::entry& entry = s.entries[each.first];
        outcomes[each.first] = !entry.under_way || s.is_fresh(entry) ? entry.last : outcome{};
    }
    for (auto it = s.entries.begin(); it != s.entries.end();)
        it = it->second.under_way || s.is_fresh(it->second) ? std::next(it) : s.entries.erase(it);
    return outcomes;
}

// Called with the lock held. If no thread can be started, queued reads wait for the existing
// threads.
void slow_reads::add_thread() {
    if (state_->threads == state_->most_threads)
        return;
    try {
        std::thread(serve, state_).detach();
        ++state_->threads;
        ++state_->idle;
    } catch (const std::system_error&) {
    }
}

void slow_reads::serve(const std::shared_ptr<shared_state>& state) {
    shared_state& s = *state;
    std::unique_lock<std::mutex> guard(s.lock);
    for (;;) {
        s.queued.wait(guard, [&s] { return s.stopping || !s.queue.empty(); });
        if (s.stopping)
            return;
        --s.idle;
        const auto [key, work] = std::move(s.queue.front());
        s.queue.pop_front();
        guard.unlock();
        outcome result = do_work(work);
        guard.lock();
        shared_state::entry& entry = s.entries[key];
        entry.under_way = false;
        entry.finished = true;
        entry.last = std::move(result);
        entry.finish_time = clock::now();
        ++s.idle;
        s.done.notify_all();
    }
}

// Opens the file without O_NONBLOCK, because a driver may answer a reader that does not wait with
// EAGAIN only.
slow_reads::outcome slow_reads::read_file(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd == -1)
        return {-errno, {}};
    char text[4095];
    ssize_t n = -1;
    do
        n = read(fd, text, sizeof text);
    while (n == -1 && errno == EINTR);
    outcome result{n == -1 ? -errno : 0, {}};
    close(fd);
    if (n > 0)
        result.bytes.assign(text, static_cast<std::size_t>(n));
    return result;
}

} // namespace monsrv
