// Requests whose answers may take long, kept away from the thread that answers clients.
#ifndef MONSRV_SLOW_REQUESTS_H
#define MONSRV_SLOW_REQUESTS_H

#include "sampler.h"

#include <memory>
#include <string>
#include <vector>

namespace monsrv {

/// A request with the one who asked, and what came of it.
struct slow_request {
    const answering* how = nullptr; ///< of the machine's table
    std::string peer;               ///< whom the answer goes to
    std::string frame;              ///< header and payload, well formed
    int result = 0;                 ///< of the handler
    reply answer;
};

/// Runs the handlers of each slow subject in a thread of the subject's own, which starts with its
/// first request. Only one thread may call this; it gets the answers back when `event` is readable.
///
/// Destroying this waits for nothing: a thread that is in a handler ends after it, and owns the
/// machine until then.
class slow_requests {
public:
    /// Requests that wait for one subject. Clients have one each, so this is many clients.
    static constexpr std::size_t waiting_max = 1024;

    /// @throws std::system_error if the process is out of descriptors
    explicit slow_requests(std::shared_ptr<const sampled_machine> machine);
    ~slow_requests();
    slow_requests(const slow_requests&) = delete;
    slow_requests& operator=(const slow_requests&) = delete;

    /// Takes a request that a slow subject answers.
    /// @return 0, or a negated errno, and then it is not answered: -EBUSY if too many wait, -EAGAIN
    ///         if the subject's thread cannot be started
    int add(slow_request asked);
    /// Tells all slow subjects, each after the requests it already has, that a client is gone.
    void client_gone(std::uint8_t client_id);

    /// Drops the requests of @p peer that are not being answered yet: nobody waits for them.
    void peer_gone(const std::string& peer);

    /// A descriptor that is readable when requests have been answered.
    int event() const;
    /// The requests answered since the last call.
    std::vector<slow_request> take_answered();

private:
    struct shared_state;

    std::shared_ptr<shared_state> state_;
};

} // namespace monsrv

#endif
