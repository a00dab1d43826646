// Writes each message once.
#include "messages.h"

#include "safe_text.h"
#include "session.h"

#include <iostream>

namespace exporter {

namespace {
constexpr std::size_t most_texts = 1000; // servers that make up ever new ones are not listened to
}

void messages::say_state(const host_state& now) {
    const std::lock_guard<std::mutex> guard(lock_);
    std::cerr << "moncl-exporter: " << (*now.up ? now.host + " answers" : now.text) << std::endl;
}

void messages::say_once(const std::string& host, const std::string& text) {
    const std::lock_guard<std::mutex> guard(lock_);
    if (said_.size() < most_texts && said_.insert(host + ": " + text).second)
        std::cerr << "moncl-exporter: " << host << ": " << tools::safe_text(text) << std::endl;
}

void messages::say_of(const std::string& host, const tools::answer& got, bool named) {
    if (!got.failure.empty())
        say_once(host, "cannot read all of an answer: " + got.failure);
    for (const std::string& each : got.figures.notes)
        say_once(host, each);
    if (const std::string reason = reason_of(got); named && !reason.empty())
        say_once(host, reason);
}

std::string reason_of(const tools::answer& failed) {
    if (failed.code >= 0 || !failed.failure.empty() || !failed.is_servers_own)
        return {};
    return failed.figures.faults.empty() ? tools::refusal_text(*failed.what, failed.code)
                                         : failed.figures.faults.front();
}

} // namespace exporter
