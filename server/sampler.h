// What a sampler is: a handler for some of the requests, installed into the server's table.
//
// A subject is one file under server/sampler/ that ends in one line such as
//
//     const sampler_registration registered(install);
//
// where install(table, env) adds a handler for each request it answers.
//
// The handlers of one server run in its loop, one after the other, and hold up all clients: 10 ms
// are long. Handlers that may take longer belong to a slow subject, which has a thread of its own;
// they run there one after the other, and must return well within a client's 1000 ms. What handlers
// remember belongs to the thread that they run in; no two subjects share any of it.
#ifndef MONSRV_SAMPLER_H
#define MONSRV_SAMPLER_H

#include "host.h"
#include "request_numbers.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace monsrv {

/// One request as its handler sees it.
struct request {
    int sub_command;              ///< the item asked for
    std::uint8_t client_id;       ///< who asks; 0 if it holds no id
    const unsigned char* payload; ///< `size` bytes, valid during the call
    std::size_t size;

    /// The payload's first four bytes as a little-endian number, such as a process id; 0 if the
    /// payload is shorter.
    std::int32_t number() const;
};

/// The header of a request's frame, with zeros for what it lacks.
data_struct header_of(const std::string& frame);

/// The payload of an answer. Holds one packet of 8192 bytes unless `allow_parts` was called; more
/// is cut off.
class reply {
public:
    /// Lets the payload grow to 50 packets. Only for requests whose clients receive further parts.
    void allow_parts();
    /// Bytes that still fit.
    std::size_t room() const;
    /// Appends @p size bytes at @p data, or as many as fit.
    /// @return whether all fitted
    bool add(const void* data, std::size_t size);
    /// Appends a record as it lies in memory, if it fits as a whole.
    template<class Record>
    bool add_record(const Record& record) {
        return sizeof record <= room() && add(&record, sizeof record);
    }
    /// Appends a byte that counts records and the records it counts: those of @p records that fit.
    template<class Record>
    void add_counted(const std::vector<Record>& records) {
        const std::size_t fitting = room() == 0 ? 0 : (room() - 1) / sizeof(Record);
        const std::size_t count = std::min({records.size(), fitting, std::size_t{255}});
        add_record(static_cast<std::uint8_t>(count));
        for (std::size_t i = 0; i < count; ++i)
            add_record(records[i]);
    }
    /// Appends the lines of @p text that fit as a whole, and leaves room for a closing NUL.
    /// @return whether all fitted
    bool add_lines(std::string_view text);

    std::vector<unsigned char> bytes; ///< the payload so far

private:
    std::size_t capacity_ = answer_payload_max;
};

/// Answers a request.
/// @return 0, or a negated errno that is sent instead of the payload
using handler = std::function<int(const request&, reply&)>;

/// The thread of the server's loop, and of all handlers that are not slow.
inline constexpr std::size_t loop_thread = 0;

/// Whether clients that ask for the same may get the same answer, a tenth of a second old at most.
enum class sharing { none, among_clients };

/// How a request is answered.
struct answering {
    handler answer;
    std::size_t thread = loop_thread; ///< that must call `answer`
    sharing shared = sharing::none;   ///< only where the thread is not the loop's
};

/// Makes a handler of the loop answer from its latest answer if that is 2 ms old at most, whoever
/// asks. Not in a tree of files, which another program may have changed meanwhile. Only for
/// requests without a payload that matters, and for one sub-command.
handler shared_briefly(const host& env, handler answer);

/// The handlers of one server, by command and sub-command.
class sampler_table {
public:
    /// A thread for the handlers of one slow subject.
    std::size_t add_slow_thread() { return threads_++; }
    /// Number of threads, the loop's included.
    std::size_t threads() const { return threads_; }

    /// Calls @p answer in the loop for requests of @p command and @p sub_command.
    void on(int command, int sub_command, handler answer);
    /// Calls @p answer in the thread @p thread.
    void on_slow(std::size_t thread, int command, int sub_command, handler answer,
                 sharing shared = sharing::none);
    /// Calls @p forget, in the thread @p thread, with the id of every client that gives its id
    /// back.
    void on_client_gone(std::function<void(std::uint8_t)> forget, std::size_t thread = loop_thread);

    /// How a request is answered; null if it is not.
    const answering* find(int command, int sub_command) const;
    /// Command and sub-command of every request that has a handler, in ascending order.
    std::vector<std::pair<int, int>> requests() const;
    /// Tells the samplers of @p thread, which must be the caller's, that a client is gone.
    void client_gone(std::uint8_t client_id, std::size_t thread) const;

private:
    std::map<std::pair<int, int>, answering> handlers_;
    std::vector<std::pair<std::size_t, std::function<void(std::uint8_t)>>> forgetters_;
    std::size_t threads_ = loop_thread + 1;
};

/// Calls @p answer.
/// @return its result; -ENOMEM or -EIO if it threw
int run_handler(const handler& answer, const request& asked, reply& answered);

/// Adds a subject's handlers to a server's table. @p env outlives the table.
using sampler_installer = void (*)(sampler_table& table, const host& env);

/// Registers a subject with every server constructed later.
class sampler_registration {
public:
    explicit sampler_registration(sampler_installer install);
};

/// Installs all registered subjects.
void install_samplers(sampler_table& table, const host& env);

/// A machine and the samplers installed for it.
struct sampled_machine {
    explicit sampled_machine(host sampled) : env(std::move(sampled)) {
        install_samplers(samplers, env);
    }
    sampled_machine(const sampled_machine&) = delete;
    sampled_machine& operator=(const sampled_machine&) = delete;

    host env;
    sampler_table samplers; // refer to env
};

} // namespace monsrv

#endif
