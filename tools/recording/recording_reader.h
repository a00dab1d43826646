// Reading what was recorded of one host: ticks, and the reports at them.
//
//     recording_reader file("night.db", recorded_hosts("night.db").front());
//     for (auto at = file.first(); at; at = file.after(at->tick))
//         use(file.read(*at, file.subjects()));
#ifndef MONCL_TOOLS_RECORDING_READER_H
#define MONCL_TOOLS_RECORDING_READER_H

#include "source.h"

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tools {

class database;
class statement;

/// One report of the recording.
struct recorded_tick {
    std::int64_t tick = 0; ///< grows with time
    std::chrono::system_clock::time_point time;
    double seconds = 0;   ///< by a clock that is never set, within a run
    std::int64_t run = 0; ///< of the recording program: another one stands after a gap
    bool away = false;    ///< the server did not answer
};

/// Names of the hosts in the recording @p path, as they were first seen.
/// @throws std::runtime_error if it is no recording that can be read
std::vector<std::string> recorded_hosts(const std::string& path);

/// Opens the recording @p path for reading. @throws std::runtime_error
std::unique_ptr<database> open_recording(const std::string& path);

/// Reads one host's part of a recording, also while that is written to. Belongs to one thread at a
/// time. What SQLite refuses is thrown as std::runtime_error.
class recording_reader {
public:
    using time_point = std::chrono::system_clock::time_point;

    /// @throws std::runtime_error if @p path is no recording that can be read, or has nothing of
    ///         @p host
    recording_reader(const std::string& path, const std::string& host);
    ~recording_reader();

    const std::string& host() const { return host_; }
    /// Those that the recording has figures of, by their places.
    std::vector<const subject*> subjects() const;

    std::optional<recorded_tick> first() const;
    std::optional<recorded_tick> last() const;
    /// The first tick after @p tick, and the last before it.
    std::optional<recorded_tick> after(std::int64_t tick) const;
    std::optional<recorded_tick> before(std::int64_t tick) const;
    /// The first tick that is not earlier than @p time.
    std::optional<recorded_tick> from(time_point time) const;

    /// The report at @p at, with the rows as they were recorded and without rates. Going forward is
    /// fastest.
    /// @param notes_since a tick: notes of later ones up to @p at are part of it
    report read(const recorded_tick& at, const std::vector<const subject*>& subjects,
                std::int64_t notes_since);

private:
    struct subject_state;
    struct event;

    std::optional<recorded_tick> find(const std::string& condition, std::int64_t operand) const;
    subject_state* state_of(const subject& what);
    void load_events();
    void add_events(const recorded_tick& at, std::int64_t notes_since, answer& to) const;
    bool has_changed();

    std::string path_;
    std::string host_;
    std::int64_t host_id_ = 0;
    std::unique_ptr<database> file_;
    mutable std::map<std::string, std::unique_ptr<statement>> finders_; // by condition
    std::unique_ptr<statement> version_asker_;
    std::vector<std::unique_ptr<subject_state>> states_;
    std::vector<event> events_;
    std::int64_t version_ = -1; // of the file's contents, when something was kept of them
};

} // namespace tools

#endif
