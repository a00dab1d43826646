// Samples into an SQLite file, from which they can be replayed.
//
// Reports are gathered in memory and written in one transaction every few seconds; what was written
// survives a kill and a power cut. Unchanged rows are not repeated for up to 16 reports.
#ifndef MONCL_TOOLS_RECORDING_H
#define MONCL_TOOLS_RECORDING_H

#include "output.h"

#include <cstdint>
#include <memory>
#include <ostream>

namespace tools {

/// How often a recording is written, and what limits its size.
struct recording_options {
    double sync_seconds = 10;    ///< at most this much is lost by a kill
    double keep_seconds = 0;     ///< older reports are deleted; 0: none
    std::uint64_t max_bytes = 0; ///< the oldest are deleted when the file gets there; 0: never
    std::uint64_t max_wal_bytes = 32U
                                  << 20; ///< recording pauses when a reader keeps the log at that
};

/// What is wrong with a duration, or a size, that a user gave for one of these; empty if nothing
/// is.
std::string duration_fault(const std::string& text);
std::string size_fault(const std::string& text);

/// Writes samples to a file, which has one writer at a time and any number of readers.
class recording : public output {
public:
    /// Opens or makes @p path.
    /// @param err where faults and repairs are reported
    /// @throws std::runtime_error if it cannot be recorded to, with the cause
    recording(const std::string& path, recording_options options, std::ostream& err);
    /// Writes what is still held back, as `finish` does.
    ~recording() override;

    bool wants_rates() const override { return false; }
    void show(const shown_sample& each) override;
    void miss(const missing_sample& each) override;
    void end_report(const std::string& host, long number, bool away) override;
    /// Writes what is still held back, and ends the run.
    void finish() override;

    /// Reports that could not be written, and are lost.
    std::uint64_t lost() const;

private:
    class file;
    std::unique_ptr<file> file_;
};

} // namespace tools

#endif
