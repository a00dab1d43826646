// What a server counts of itself.
#ifndef MONSRV_SERVER_COUNTS_H
#define MONSRV_SERVER_COUNTS_H

#include <cstdint>
#include <string>

namespace monsrv {

/// Totals since the server was constructed, and what it has open now.
struct server_counts {
    std::uint64_t requests;         ///< taken; malformed messages are none
    std::uint64_t refused;          ///< answered with an error's code
    std::uint64_t slow;             ///< handed to the thread of a slow subject
    std::uint64_t malformed;        ///< messages that are no request: no delimiter or no frame
    std::uint64_t dropped_requests; ///< of clients that had too many waiting, that had gone or may
                                    ///< not ask any more, or for want of memory
    std::uint64_t dropped_answers;  ///< to clients that did not read those before
    std::uint64_t refused_connections; ///< too many, or with a key that is not allowed
    std::uint64_t connections;         ///< open now
    std::uint64_t held_ids;            ///< held by clients now
};

/// The counts as a text of lines "NAME NUMBER", with the names of the fields.
std::string text_of(const server_counts& counts);

} // namespace monsrv

#endif
