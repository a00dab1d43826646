// A queue and a thread for each slow subject, and the queue of answers to the loop.
#include "slow_requests.h"

#include "descriptor.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>
#include <optional>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>

namespace monsrv {

namespace {
using clock_type = std::chrono::steady_clock;

// How long after it was taken an answer serves others who ask for the same.
constexpr std::chrono::milliseconds shared_for{100};

struct queued {
    std::optional<slow_request> asked; // if not, its client is gone
    std::uint8_t client_id;
};

/// The latest answer to each request that clients share; belongs to one thread.
class shared_answers {
public:
    void answer(slow_request& asked) {
        const data_struct header = header_of(asked.frame);
        const std::string payload =
            asked.frame.substr(frame_header_size, static_cast<std::size_t>(header.msg_len));
        const request as_handled{header.sub_command, header.client_id,
                                 reinterpret_cast<const unsigned char*>(payload.data()),
                                 payload.size()};
        if (asked.how->shared == sharing::none) {
            asked.result = run_handler(asked.how->answer, as_handled, asked.answer);
            return;
        }
        latest& known = latest_[asked.how];
        if (known.payload != payload || clock_type::now() - known.time >= shared_for) {
            known.payload = payload;
            known.answer = {};
            known.result = run_handler(asked.how->answer, as_handled, known.answer);
            known.time = clock_type::now();
        }
        asked.result = known.result;
        asked.answer = known.answer;
    }

private:
    struct latest {
        std::string payload;
        int result = 0;
        reply answer;
        clock_type::time_point time{};
    };
    std::map<const answering*, latest> latest_;
};

void answer_safely(shared_answers& answers, slow_request& asked) {
    try {
        answers.answer(asked);
    } catch (const std::bad_alloc&) {
        asked.result = -ENOMEM;
    }
}
} // namespace

// Owned by the threads as well, so that one that hangs can end after everything else is gone.
struct slow_requests::shared_state {
    struct subject {
        std::condition_variable queued;
        std::deque<monsrv::queued> queue;
        std::size_t requests = 0; // in the queue
        bool started = false;
    };

    explicit shared_state(std::shared_ptr<const sampled_machine> sampled)
        : machine(std::move(sampled)), subjects(machine->samplers.threads()),
          event(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
        if (event.fd == -1)
            throw std::system_error(errno, std::generic_category(), "monsrv");
    }

    void serve(std::size_t thread);

    const std::shared_ptr<const sampled_machine> machine;
    std::mutex lock;
    std::vector<subject> subjects; // by thread
    std::vector<slow_request> answered;
    bool stopping = false;
    descriptor event;
};

slow_requests::slow_requests(std::shared_ptr<const sampled_machine> machine)
    : state_(std::make_shared<shared_state>(std::move(machine))) {}

slow_requests::~slow_requests() {
    const std::lock_guard<std::mutex> guard(state_->lock);
    state_->stopping = true;
    for (shared_state::subject& each : state_->subjects)
        each.queued.notify_all();
}

int slow_requests::add(slow_request asked) {
    const std::size_t thread = asked.how->thread;
    const std::lock_guard<std::mutex> guard(state_->lock);
    shared_state::subject& subject = state_->subjects[thread];
    if (subject.requests == waiting_max)
        return -EBUSY;
    if (!subject.started) {
        try {
            std::thread([state = state_, thread] { state->serve(thread); }).detach();
        } catch (const std::system_error&) {
            return -EAGAIN;
        }
        subject.started = true;
    }
    const std::uint8_t client_id = header_of(asked.frame).client_id;
    subject.queue.push_back({std::move(asked), client_id});
    ++subject.requests;
    subject.queued.notify_one();
    return 0;
}

// Nothing is queued twice: a client that takes ids and gives them back all the time fills no queue.
void slow_requests::client_gone(std::uint8_t client_id) {
    const std::lock_guard<std::mutex> guard(state_->lock);
    for (shared_state::subject& each : state_->subjects) {
        const auto latest = std::find_if(
            each.queue.rbegin(), each.queue.rend(),
            [client_id](const queued& waiting) { return waiting.client_id == client_id; });
        if (!each.started || (latest != each.queue.rend() && !latest->asked))
            continue;
        each.queue.push_back({{}, client_id});
        each.queued.notify_one();
    }
}

void slow_requests::peer_gone(const std::string& peer) {
    const std::lock_guard<std::mutex> guard(state_->lock);
    for (shared_state::subject& each : state_->subjects) {
        std::deque<queued>& queue = each.queue;
        const auto kept = std::remove_if(queue.begin(), queue.end(), [&](const queued& waiting) {
            return waiting.asked && waiting.asked->peer == peer;
        });
        each.requests -= static_cast<std::size_t>(queue.end() - kept);
        queue.erase(kept, queue.end());
    }
}

int slow_requests::event() const {
    return state_->event.fd;
}

std::vector<slow_request> slow_requests::take_answered() {
    std::uint64_t count;
    [[maybe_unused]] const ssize_t n = read(state_->event.fd, &count, sizeof count);
    const std::lock_guard<std::mutex> guard(state_->lock);
    return std::move(state_->answered);
}

void slow_requests::shared_state::serve(std::size_t thread) {
    shared_answers answers;
    subject& own = subjects[thread];
    std::unique_lock<std::mutex> guard(lock);
    for (;;) {
        own.queued.wait(guard, [&] { return stopping || !own.queue.empty(); });
        if (stopping)
            return;
        queued next = std::move(own.queue.front());
        own.queue.pop_front();
        own.requests -= next.asked ? 1 : 0;
        guard.unlock();
        if (next.asked)
            answer_safely(answers, *next.asked);
        else
            machine->samplers.client_gone(next.client_id, thread);
        guard.lock();
        if (!next.asked || stopping)
            continue;
        answered.push_back(std::move(*next.asked));
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t n = write(event.fd, &one, sizeof one);
    }
}

} // namespace monsrv
