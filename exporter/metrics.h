// /metrics and /probe: expositions of what servers answer at that time.
#ifndef MONCL_EXPORTER_METRICS_H
#define MONCL_EXPORTER_METRICS_H

#include "host_states.h"
#include "http_message.h"
#include "messages.h"
#include "openmetrics.h"
#include "scrape_worker.h"
#include "targets.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace exporter {

/// What scrapes are about.
struct metrics_plan {
    std::vector<tools::endpoint> servers;
    std::vector<std::string> allowed_targets;
    subject_list subjects; ///< empty: all that have few rows and switch nothing on
    server_access access;
};

/// Answers scrapes. Servers are asked side by side, each once for a scrape.
class metrics_pages {
public:
    /// @param asked is told of each server of the plan whether it answered, and if not, why
    /// @param said  outlives this
    metrics_pages(
        metrics_plan plan, messages& said,
        std::function<void(const std::string& host, bool up, const std::string& why)> asked);

    /// All servers of the plan.
    response metrics(const request& asked);
    /// The server that the argument `target` names.
    response probe(const request& asked);
    /// Ends the waiting of all scrapes.
    void stop();

private:
    using worker = std::shared_ptr<scrape_worker>;

    response scrape_all(const std::vector<worker>& workers, const subject_list& subjects,
                        const request& asked, bool tells);
    void add(tools::exposition& to, scrape_worker& from, const scrape& ordered, bool done,
             bool tells);
    worker worker_for(const tools::endpoint& target);

    metrics_plan plan_;
    bool named_; // the subjects of the plan were
    messages& messages_;
    allowed_targets targets_;
    std::function<void(const std::string&, bool, const std::string&)> asked_;
    std::vector<worker> workers_;
    std::mutex lock_;                      // of the rest
    std::map<std::string, worker> probed_; // by target
    bool stopping_ = false;
};

/// Reads names of subjects that are joined by commas.
/// @param fallback stands for an empty text
/// @return what is wrong with @p text; empty if nothing is wrong
std::string read_subjects(const std::string& text, const subject_list& fallback,
                          subject_list& into);

} // namespace exporter

#endif
