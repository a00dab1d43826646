// The common base of all managers: one query as one locked cycle of send, receive, decode, report.
//
// A manager of your own derives from `request_handler`, sets `request_cmd`, and specialises
// `handle_request` and, where a query may be given a stream, `show_result` for its parser handles:
//
//     template<>
//     int request_handler::handle_request(std::shared_ptr<my_parser> parser) {
//         parser->parse(client->get_recv_data()->msg);
//         return 0;
//     }
#ifndef MONCL_REQUEST_HANDLER_H
#define MONCL_REQUEST_HANDLER_H

#include "client_comm.h"

#include <memory>
#include <mutex>
#include <ostream>
#include <vector>

namespace ns_req_template {

/// What every manager is made of. Queries of one manager may come from several threads: `req_lock`
/// is held for a whole cycle, report included. It is a lock per manager, not per connection.
class MONCL_API request_handler {
public:
    request_handler() = default;
    request_handler(const request_handler&) = delete;
    request_handler& operator=(const request_handler&) = delete;

    /// One request cycle with a payload of the caller's.
    /// @param sub_command number of the query
    /// @param msg         @p len bytes, 0 to 1024; copied
    /// @param parser      a std::shared_ptr to the parser that decodes the answer; it keeps what it
    ///                    held if the cycle fails before decoding
    /// @param out         receives the report if not null
    /// @return 0, or the first negative code met, which has been logged: of the send, the receive
    ///         (the server's own code included) or `handle_request`
    /// @throws std::system_error if the lock cannot be taken; what @p out, or standard output where
    ///         a decoder prints, throws on a failed write. The lock is then free again
    template<class T>
    int get_req_info(int sub_command, std::uint8_t* msg, int len, T parser, std::ostream* out) {
        std::lock_guard<std::mutex> lock(req_lock);
        return run_cycle(sub_command, msg, len, parser, out);
    }

    /// `get_req_info` with the standard request: 4 zero bytes.
    template<class T>
    int get_sys_info(int sub_command, T parser, std::ostream* out) {
        std::lock_guard<std::mutex> lock(req_lock);
        return run_standard_cycle(sub_command, parser, out);
    }

    /// `get_req_info` for a caller that holds `req_lock` already, because it does more under the
    /// lock than one cycle.
    template<class T>
    int run_cycle(int sub_command, std::uint8_t* msg, int len, T parser, std::ostream* out) {
        int r = exchange(sub_command, msg, len);
        if (r < 0)
            return r;
        r = handle_request(parser);
        if (r < 0)
            return log_failure("Handle request error with %d\n", r);
        if (out != nullptr)
            show_result(parser, *out);
        return 0;
    }

    /// `run_cycle` with the standard request: 4 zero bytes.
    template<class T>
    int run_standard_cycle(int sub_command, T parser, std::ostream* out) {
        std::uint8_t zero[4] = {};
        return run_cycle(sub_command, zero, sizeof zero, parser, out);
    }

    /// Decodes the answer in `client->get_recv_data()` into @p parser; one specialisation for each
    /// parser. Called with `req_lock` held.
    /// @return 0 or more, or a negative code that ends the cycle
    template<class T>
    int handle_request(T parser);

    /// Writes the report of @p parser's records; one specialisation for each parser. Called with
    /// `req_lock` held.
    template<class T>
    void show_result(T parser, std::ostream& out);

    /// Sends a request and receives its answer, or the first part of it; `req_lock` must be held.
    /// @return bytes received, or the negative code, which has been logged
    int exchange(int sub_command, const std::uint8_t* msg, int len);

    /// Logs @p format, which takes one int, with @p code under this manager's tag.
    /// @return @p code
    int log_failure(const char* format, int code) const;

    /// Receives the further parts of an answer into `joined_parts`, after the first one;
    /// `req_lock` must be held. `joined_parts` is then 409600 bytes of payload, zero where none
    /// came, and a zero byte.
    /// @return 0, or the code of `client_comm::recv_more_msg`
    int receive_parts();

    /// Connects @p connection and takes it as `client`.
    /// @throws const char* @p failure, a literal, if that fails; `client` is then as it was
    void connect(std::shared_ptr<client_comm> connection, const char* failure);

    std::shared_ptr<client_comm> client; ///< the connection; may be shared; null until given one
    int request_cmd = 0;                 ///< `command` of every request
    mutable std::mutex req_lock;         ///< held for a whole request cycle
    request_handler* manager = nullptr;  ///< the most-derived manager, set by its constructor
    const char* log_tag = "MONCL";       ///< tag of this manager's log lines; a literal
    std::vector<unsigned char>
        joined_parts;   ///< the latest answer of several parts; kept to be reused
    int joined_len = 0; ///< bytes of `joined_parts` that parts were written to
};

} // namespace ns_req_template

#endif
