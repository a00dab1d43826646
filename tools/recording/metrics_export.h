// A recording as OpenMetrics with time stamps, for programs that load it as a whole. Families are
// written one after the other, each metric with all of its points, as that form demands; what is
// held in memory at a time has a limit.
#ifndef MONCL_TOOLS_METRICS_EXPORT_H
#define MONCL_TOOLS_METRICS_EXPORT_H

#include "recording_source.h"
#include "writer.h"

#include <functional>
#include <map>

namespace tools {

/// Writes a recording.
class metrics_export {
public:
    /// @param path  of the recording
    /// @param hosts rows name theirs if there are several
    /// @param plan  an interval thins the points out; a count is not heeded
    /// @throws std::runtime_error if there is nothing to write
    metrics_export(const std::string& path, const std::vector<std::string>& hosts,
                   const replay_plan& plan, writer& to);
    ~metrics_export();

    /// Writes all of it, and stops early if nobody reads on.
    /// @param progress called now and then with the part that is done, from 0 to 1; returns
    ///                 whether to go on
    /// @throws std::runtime_error if the file cannot be read
    void run(const std::function<bool(double)>& progress);

    /// Points left out because the clock had been set back: time must grow.
    std::uint64_t left_out() const { return left_out_; }

private:
    struct host_ticks;
    struct thing;
    struct job;

    void add_host(const std::string& path, const std::string& name, const replay_plan& plan);
    std::vector<thing> things_of(const subject& what);
    void plan_subject(const subject& what);
    void write_up();
    void write_job(const job& each);
    void write_batch(const job& each, std::size_t from, std::size_t to);
    void write_points(const job& each, const std::string& labels, const thing& of,
                      const std::vector<std::int64_t>& series);
    void write_info(const job& each, const thing& of);
    void append_time(std::int64_t ms);
    void flush_if_long();

    std::unique_ptr<database> file_;
    const replay_plan plan_;
    writer& to_;
    bool with_host_;
    std::vector<host_ticks> hosts_;
    std::vector<std::pair<const subject*, std::vector<thing>>> things_;
    std::vector<job> jobs_;
    std::int64_t first_ = 0; // tick
    std::int64_t last_ = 0;
    std::uint64_t left_out_ = 0;
};

} // namespace tools

#endif
