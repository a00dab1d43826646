// Reads that may take long, or never end, kept away from the thread that answers clients.
#ifndef MONSRV_SLOW_READS_H
#define MONSRV_SLOW_READS_H

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace monsrv {

/// Runs reads in threads of its own and waits for them only so long. A read that hangs costs one
/// thread and nobody else's answer: it is not started again while it hangs. Destroying this waits
/// for nothing; a thread that still hangs then ends when its read does.
///
/// `run` belongs to one thread at a time.
class slow_reads {
public:
    /// What a read gave.
    struct outcome {
        int result = -ETIMEDOUT; ///< 0, or a negated errno
        std::string bytes;       ///< what was read; empty on failure
    };
    /// One read. Runs in another thread and may outlive the server: it must own all it uses.
    using work = std::function<outcome()>;
    using clock = std::chrono::steady_clock;

    /// How long `run` waits, a fraction of a client's 1000 ms.
    static constexpr std::chrono::milliseconds patience{200};
    /// How long a value that came too late for its own `run` serves later ones.
    static constexpr std::chrono::seconds keep{10};

    /// @param most_threads reads that may hang before all others have to wait for them
    explicit slow_reads(std::size_t most_threads);
    ~slow_reads();
    slow_reads(const slow_reads&) = delete;
    slow_reads& operator=(const slow_reads&) = delete;

    /// Does all of @p wanted, waiting at most `patience`.
    /// @return one outcome for each key: its value; for a read still under way its value of before
    ///         unless that is older than `keep`; else -ETIMEDOUT
    std::map<std::string, outcome> run(const std::map<std::string, work>& wanted);

    /// Reads up to 4095 bytes of the file @p path, waiting for it if it is slow.
    static outcome read_file(const std::string& path);

private:
    struct shared_state;
    static void serve(const std::shared_ptr<shared_state>& state);
    void add_thread();

    std::shared_ptr<shared_state> state_;
};

} // namespace monsrv

#endif
