// /api/v1: what there is to ask for, and samples in the console's form of JSON.
#ifndef MONCL_EXPORTER_API_H
#define MONCL_EXPORTER_API_H

#include "feed.h"
#include "history.h"
#include "host_states.h"
#include "http_message.h"

#include <string>

namespace exporter {

/// What the API answers from. All of it has to outlive the API.
struct api_parts {
    feed& samples;
    history& kept;
    host_states& states;
    double interval;       ///< of the feed, in seconds
    std::string recording; ///< file that the feed is recorded in; empty: none
    subject_list named;    ///< subjects that were chosen on the command line
};

/// Answers the requests below /api/v1.
class api {
public:
    explicit api(api_parts parts) : parts_(std::move(parts)) {}

    response subjects(const request& asked) const;
    response hosts(const request& asked) const;
    response latest(const request& asked);
    response find_history(const request& asked);
    response stream(const request& asked);

private:
    response read_query(const request& asked, sample_query& into) const;
    bool add_recorded(const sample_query& wanted, sample_series& into) const;

    api_parts parts_;
};

/// The subjects of a stream that names none: those that switch nothing on, and @p named.
subject_list default_subjects(const subject_list& named);

} // namespace exporter

#endif
