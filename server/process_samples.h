// The latest sample of all processes, for all who ask.
#ifndef MONSRV_PROCESS_SAMPLES_H
#define MONSRV_PROCESS_SAMPLES_H

#include "process_sample.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace monsrv {

/// Takes a sample when somebody asks and the latest one is old. Where taking one costs much, a
/// thread of its own takes it ahead of the next request of a client that keeps its pace, so that
/// nobody waits; that ends with the first request that does not come.
///
/// A sample serves for 100 ms after it was taken, or for as long as taking it took if that is more;
/// while the next is being taken, for twice its cost more. The thread takes up half of the time at
/// most.
///
/// `get` and `forget` belong to one thread, and what `get` gives may be changed by that one only.
/// Destroying this waits for nothing.
class process_samples {
public:
    using clock = process_sample::clock;

    /// @param worth_taking_ahead what a sample must cost to be taken ahead
    process_samples(const host& env, clock::duration worth_taking_ahead);
    ~process_samples();
    process_samples(const process_samples&) = delete;
    process_samples& operator=(const process_samples&) = delete;

    /// Gives the latest sample in @p sample. In a tree of files, another uptime is another capture,
    /// and wants a sample of its own.
    /// @return 0, or a negated errno: -ETIMEDOUT if the next sample is not taken in time
    int get(std::uint8_t client_id, std::shared_ptr<process_sample>& sample);
    void forget(std::uint8_t client_id);
    /// Samples taken so far.
    std::size_t taken() const;

private:
    struct shared_state;
    static void take_ahead(const std::shared_ptr<shared_state>& state);

    std::shared_ptr<shared_state> state_;
};

} // namespace monsrv

#endif
