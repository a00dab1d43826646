// Taking samples on demand and ahead of it.
#include "process_samples.h"

#include "platform_log.h"
#include "request_pace.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>

namespace monsrv {

namespace {
using clock_type = process_samples::clock;

// How long a sample serves those who ask, or as long as it took if that is more.
constexpr std::chrono::milliseconds shared_for{100};
// How long a request waits for a sample that is being taken, a fraction of a client's 1000 ms.
constexpr std::chrono::milliseconds patience{700};
// How often the thread checks whether requests came at another time than expected.
constexpr std::chrono::milliseconds turn{20};
} // namespace

// Owned by the thread as well, so that one that hangs can end after everything else is gone.
struct process_samples::shared_state {
    shared_state(const host& sampled, clock::duration worth) : env(sampled), worth_ahead(worth) {}

    clock::time_point fresh_until() const {
        return latest->end + std::max<clock::duration>(shared_for, latest->cost());
    }
    bool is_usable() const {
        const auto now = clock::now();
        if (latest == nullptr ||
            now >= fresh_until() + (under_way ? 2 * latest->cost() : clock::duration(0)))
            return false;
        return env.is_live() || read_uptime(env) == latest->totals->uptime;
    }
    void take(std::unique_lock<std::mutex>& guard);
    std::optional<clock::time_point> next_start() const;
    void log_left_out(const process_sample& sample);

    const host env;
    const clock::duration worth_ahead;
    std::mutex lock;
    std::condition_variable changed;
    request_pace pace;
    std::shared_ptr<process_sample> latest;
    // The totals of `latest` as they were taken. The next sample needs them, and those who got
    // `latest` may change it.
    std::shared_ptr<const process_snapshot> before;
    int error = 0; // of the latest attempt
    std::size_t taken = 0;
    bool under_way = false;
    bool has_thread = false;
    bool left_out = false; // from the latest sample
    bool stopping = false;
};

process_samples::process_samples(const host& env, clock::duration worth_taking_ahead)
    : state_(std::make_shared<shared_state>(env, worth_taking_ahead)) {}

process_samples::~process_samples() {
    const std::lock_guard<std::mutex> guard(state_->lock);
    state_->stopping = true;
    state_->changed.notify_all();
}

int process_samples::get(std::uint8_t client_id, std::shared_ptr<process_sample>& sample) {
    shared_state& s = *state_;
    std::unique_lock<std::mutex> guard(s.lock);
    const bool keeps_pace = s.pace.asked(client_id, clock::now());
    if (!s.is_usable()) {
        if (!s.under_way)
            s.take(guard);
        else if (!s.changed.wait_for(guard, patience, [&s] { return !s.under_way; }))
            return -ETIMEDOUT;
        if (s.error < 0)
            return s.error;
    }
    sample = s.latest;
    if (keeps_pace && !s.has_thread && s.latest->cost() >= s.worth_ahead) {
        try {
            std::thread(take_ahead, state_).detach();
            s.has_thread = true;
        } catch (const std::system_error&) { // then every sample is taken on demand
        }
    }
    return 0;
}

void process_samples::forget(std::uint8_t client_id) {
    const std::lock_guard<std::mutex> guard(state_->lock);
    state_->pace.forget(client_id);
}

std::size_t process_samples::taken() const {
    const std::lock_guard<std::mutex> guard(state_->lock);
    return state_->taken;
}

// Called with the lock held, which is open while the sample is taken.
void process_samples::shared_state::take(std::unique_lock<std::mutex>& guard) {
    const std::shared_ptr<const process_snapshot> known = before;
    std::shared_ptr<process_sample> sample;
    std::shared_ptr<const process_snapshot> copy;
    int result = -ENOMEM;
    under_way = true;
    guard.unlock();
    try {
        result = take_process_sample(env, known.get(), sample);
        if (result == 0)
            copy = std::make_shared<process_snapshot>(*sample->totals);
    } catch (const std::bad_alloc&) {
        result = -ENOMEM;
    }
    guard.lock();
    under_way = false;
    error = result;
    if (result == 0) {
        log_left_out(*sample);
        latest = std::move(sample);
        before = std::move(copy);
        ++taken;
    }
    changed.notify_all();
}

// Returns when to take the next sample so that it is ready in time; none if no request is expected.
std::optional<clock_type::time_point> process_samples::shared_state::next_start() const {
    const clock::duration cost = latest->cost();
    if (cost < worth_ahead || error < 0)
        return {};
    const auto due = pace.next(clock::now(), fresh_until());
    if (!due)
        return {};
    return std::max(*due - cost - cost / 4 - turn,
                    latest->end + std::max<clock::duration>(cost, shared_for));
}

// The thread ends when nobody keeps asking; the next who does gets another.
void process_samples::take_ahead(const std::shared_ptr<shared_state>& state) {
    shared_state& s = *state;
    std::unique_lock<std::mutex> guard(s.lock);
    while (!s.stopping) {
        const auto start = s.next_start();
        if (!start)
            break;
        const auto now = clock::now();
        if (*start > now || s.under_way)
            s.changed.wait_until(guard, s.under_way ? now + turn : std::min(*start, now + turn));
        else
            s.take(guard);
    }
    s.has_thread = false;
}

void process_samples::shared_state::log_left_out(const process_sample& sample) {
    if (sample.left_out > 0 && !left_out)
        __android_log_print(ANDROID_LOG_ERROR, "MONSRV",
                            "processes beyond the first %zu are not in the table of busiest ones: "
                            "too many, or too slow to read\n",
                            sample.rows.size());
    left_out = sample.left_out > 0;
}

} // namespace monsrv
