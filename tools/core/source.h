// Where samples come from: a server, or whatever else can give them.
#ifndef MONCL_TOOLS_SOURCE_H
#define MONCL_TOOLS_SOURCE_H

#include "subject.h"

#include <optional>
#include <string>
#include <vector>

namespace tools {

/// What a source gave for one subject.
struct answer {
    const subject* what = nullptr;
    int code = 0;               ///< 0 or more, or the negative code of the failed query
    bool is_servers_own = true; ///< a negative code was the server's answer; else none came
    std::string failure;        ///< what of the answer could not be decoded; empty if all could
    sample figures;             ///< if the code is not negative
    std::optional<double> duration_seconds; ///< of the query; nothing if there was none
    std::string library_report;             ///< in place of the figures, if that was asked for
};

/// What a source gave at one time.
struct report {
    bool base = false; ///< only for the next one to be compared with; not shown
    bool away = false; ///< the last query, or all, got no answer
    bool gap = false;  ///< it is not compared with the report before
    std::vector<answer> answers;
};

/// Gives reports, one after the other. `next` belongs to one thread.
class source {
public:
    virtual ~source() = default;

    /// Its name. With several sources, rows carry it.
    virtual const std::string& host() const = 0;
    /// Waits for the next report's time and takes it.
    /// @return whether there was one more; not after `cancel`
    virtual bool next(report& into) = 0;
    /// Ends the waiting in `next`. From any thread.
    virtual void cancel() = 0;
    /// Reports from now on come every @p seconds. From any thread.
    virtual void set_interval(double /*seconds*/) {}
    /// For sources that stand still between reports: moves @p reports forward, or back if that is
    /// negative. From any thread.
    virtual void step(long /*reports*/) {}
    /// For such sources: starts or stops giving reports at the interval. From any thread.
    virtual void set_playing(bool /*on*/) {}
    /// Only these subjects are asked for from now on, at once for the first time. From any thread.
    virtual void set_subjects(const std::vector<const subject*>& /*wanted*/) {}
    /// What a user is told when nobody answers: the cause and the remedy. Of the latest report that
    /// was `away`. From any thread.
    virtual std::string away_text() const = 0;
};

} // namespace tools

#endif
