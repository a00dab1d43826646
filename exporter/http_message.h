// What a handler of HTTP requests is given, and what it gives back.
#ifndef MONCL_EXPORTER_HTTP_MESSAGE_H
#define MONCL_EXPORTER_HTTP_MESSAGE_H

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace exporter {

/// A GET or HEAD request.
struct request {
    std::string path;                                ///< decoded, from the first '/' on
    std::map<std::string, std::string> query;        ///< decoded
    std::multimap<std::string, std::string> headers; ///< names in lower case
    bool is_http_1_0 = false;

    /// The value of the header @p lower_case_name; nothing if it was not sent, or more than once.
    std::optional<std::string> header(const std::string& lower_case_name) const {
        const auto [first, last] = headers.equal_range(lower_case_name);
        return std::distance(first, last) == 1 ? std::optional(first->second) : std::nullopt;
    }
    /// The value of the argument @p name; empty if there is none.
    std::string argument(const std::string& name) const {
        const auto found = query.find(name);
        return found == query.end() ? std::string() : found->second;
    }
};

/// A body of unknown length: fills the bytes and returns how many, waiting for at least one; 0 ends
/// the answer. Called by one thread at a time.
using body_reader = std::function<std::size_t(char* into, std::size_t size)>;

/// An answer.
struct response {
    unsigned status = 200;
    std::string type = "text/plain; charset=utf-8"; ///< Content-Type
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers; ///< besides the type
    body_reader reader;                                       ///< in place of `body`, if it is set
    std::shared_ptr<std::atomic<bool>> cut; ///< once it is true, the connection is closed; or null
};

/// An answer that says in one sentence what is wrong with the request.
response fault(unsigned status, const std::string& sentence);

} // namespace exporter

#endif
