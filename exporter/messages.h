// What the exporter says on standard error of the servers that it asks.
#ifndef MONCL_EXPORTER_MESSAGES_H
#define MONCL_EXPORTER_MESSAGES_H

#include "host_states.h"
#include "source.h"

#include <mutex>
#include <set>
#include <string>

namespace exporter {

/// Says things. From any thread.
class messages {
public:
    /// Says that a server is away, or back.
    void say_state(const host_state& now);
    /// Says, once each, what was cut off of an answer, and what of it could not be decoded.
    /// @param named the subject was asked for by name, so a refusal is reported, too
    void say_of(const std::string& host, const tools::answer& got, bool named);

private:
    void say_once(const std::string& host, const std::string& text);

    std::mutex lock_;
    std::set<std::string> said_;
};

/// Why the server refused; empty if it did not, or no answer of its own came.
std::string reason_of(const tools::answer& failed);

} // namespace exporter

#endif
