// Scraping one server.
#include "scrape_worker.h"

#include <algorithm>
#include <cerrno>

namespace exporter {

scrape_worker::scrape_worker(const tools::endpoint& at, const server_access& access) {
    tools::server_plan plan;
    plan.subjects = served_subjects();
    source_ = open_server(at, access, std::move(plan));
    thread_ = std::thread([this] { run(); });
}

scrape_worker::~scrape_worker() {
    stop();
    thread_.join();
}

void scrape_worker::stop() {
    const std::lock_guard<std::mutex> guard(lock_);
    stopping_ = true;
    source_->cancel();
    changed_.notify_all();
}

std::shared_ptr<scrape> scrape_worker::order(const subject_list& subjects,
                                             clock::time_point deadline) {
    const std::lock_guard<std::mutex> guard(lock_);
    last_order_ = clock::now();
    for (const auto& each : orders_) {
        if (each->subjects != subjects)
            continue;
        each->deadline = std::max(each->deadline, deadline);
        return each;
    }
    auto made = std::make_shared<scrape>();
    made->subjects = subjects;
    made->deadline = deadline;
    orders_.push_back(made);
    changed_.notify_all();
    return made;
}

bool scrape_worker::wait_for(const scrape& ordered, clock::time_point deadline) {
    std::unique_lock<std::mutex> guard(lock_);
    changed_.wait_until(guard, deadline, [&] { return ordered.done || stopping_; });
    return ordered.done;
}

clock::time_point scrape_worker::last_order() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return last_order_;
}

// Keeps answers that are not worth asking for each time. Without this, most queries of a scrape
// would be for hardware that the server does not have.
void scrape_worker::keep(const tools::answer& got) {
    constexpr std::chrono::seconds lacking{60};
    constexpr std::chrono::seconds slow{30};
    const bool good = got.code >= 0 && got.failure.empty();
    if ((got.code == -ENODEV && got.is_servers_own) || (good && got.figures.rows.empty()))
        kept_[got.what] = {clock::now() + lacking, got};
    else if (good && got.what->changes_slowly)
        kept_[got.what] = {clock::now() + slow, got};
    else
        kept_.erase(got.what);
}

tools::report scrape_worker::ask(const scrape& ordered) {
    subject_list due;
    for (const tools::subject* each : ordered.subjects) {
        const auto kept = kept_.find(each);
        if (kept == kept_.end() || kept->second.until <= clock::now())
            due.push_back(each);
    }
    if (due.empty()) // it is not known whether the server is still there
        due = ordered.subjects;
    tools::report got;
    source_->ask_now(due, ordered.deadline, got);
    if (got.away) {
        kept_.clear();
        return got;
    }
    for (const tools::answer& each : got.answers)
        keep(each);
    for (const tools::subject* each : ordered.subjects)
        if (std::find(due.begin(), due.end(), each) == due.end())
            got.answers.push_back(kept_[each].got);
    return got;
}

void scrape_worker::run() {
    std::unique_lock<std::mutex> guard(lock_);
    for (;;) {
        changed_.wait(guard, [this] { return stopping_ || !orders_.empty(); });
        if (stopping_)
            return;
        const std::shared_ptr<scrape> next = orders_.front();
        orders_.pop_front();
        if (next->deadline <= clock::now()) // whoever ordered it has gone
            continue;
        guard.unlock();
        tools::report got = ask(*next); // nobody else has its order any more
        guard.lock();
        next->got = std::move(got);
        next->done = true;
        changed_.notify_all();
    }
}

} // namespace exporter
