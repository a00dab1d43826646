// A recording as a source: gives its reports at once, with the times at which they were taken.
#ifndef MONCL_TOOLS_RECORDING_SOURCE_H
#define MONCL_TOOLS_RECORDING_SOURCE_H

#include "recording_reader.h"
#include "schedule.h"
#include "time_text.h"

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace tools {

/// Which part of a recording is wanted.
struct replay_plan {
    std::vector<const subject*> subjects;
    selection chosen;
    schedule when; ///< without an interval all reports are given, else the nearest to each point
    std::optional<given_time> since;
    std::optional<given_time> until;
    bool compares = false;     ///< a first report is taken for the next one to be compared with
    bool stands_still = false; ///< after each report, until `step` or `set_playing` says otherwise
};

/// The ticks of a host from the first to the last that are wanted.
struct replay_range {
    recorded_tick first;
    recorded_tick last;
};

/// Finds what `since` and `until` mean in a recording. Times of day, and times before the end, are
/// those of the recording.
/// @throws std::runtime_error if the recording has nothing in between
replay_range find_range(const recording_reader& from, const std::optional<given_time>& since,
                        const std::optional<given_time>& until);

/// Whether the row @p r was asked for, by its words.
bool is_chosen(const subject& what, const selection& chosen, const row& r);

/// Leaves in @p figures the rows that were asked for.
void keep_chosen(const subject& what, const selection& chosen, sample& figures);

/// Makes the sources of one recording, each in a thread of its own, give their reports in the order
/// of time.
class replay_order {
public:
    using time_point = std::chrono::system_clock::time_point;

    /// Adds one more source, before any of them is asked. @return its place
    std::size_t join();
    /// Waits until no other source has an earlier report than the one at @p time.
    /// @param place of the source that asks
    /// @return whether that came to be; not if the source was taken out meanwhile
    bool wait_for_turn(std::size_t place, time_point time);
    /// Takes a source out that has no more reports.
    void leave(std::size_t place);

private:
    bool is_first(std::size_t place) const;

    std::mutex lock_;
    std::condition_variable moved_;
    std::vector<std::optional<time_point>> next_; // by place; nothing for one that has left
};

/// One host of a recording.
class recording_source : public source {
public:
    /// @param order shared by all sources of one session
    /// @throws std::runtime_error if there is nothing to give
    recording_source(const std::string& path, const std::string& host, replay_plan plan,
                     std::shared_ptr<replay_order> order = std::make_shared<replay_order>());

    const std::string& host() const override { return reader_.host(); }
    bool next(report& into) override;
    void cancel() override;
    void set_interval(double seconds) override;
    void step(long reports) override;
    void set_playing(bool on) override;
    std::string away_text() const override;

    /// How much of the range has been given, from 0 to 1. From any thread.
    double progress() const { return progress_; }

private:
    bool read_next(report& into);
    bool read_step(report& into);
    long wait_for_step();
    std::optional<recorded_tick> next_tick();
    std::optional<recorded_tick> nearest(std::chrono::system_clock::time_point wanted) const;
    bool is_gap(const recorded_tick& before, const recorded_tick& now) const;
    void give(const recorded_tick& at, report& into);

    recording_reader reader_;
    replay_plan plan_;
    replay_range range_;
    std::shared_ptr<replay_order> order_;
    std::size_t place_;
    std::optional<recorded_tick> at_;              // given last
    std::chrono::system_clock::time_point anchor_; // of the points in time that are wanted
    long points_ = 0;                              // since the anchor
    long done_ = 0;
    bool failed_ = false;
    std::atomic<bool> cancelled_{false};

    // Of a source that stands still.
    std::optional<recorded_tick> target_; // to be given after the one that it is compared with
    std::mutex pace_lock_;                // of the rest
    std::condition_variable paced_;
    long steps_ = 0; // asked for
    bool playing_ = false;
    double pace_ = 1; // seconds from report to report
    std::atomic<double> progress_{0};
};

} // namespace tools

#endif
