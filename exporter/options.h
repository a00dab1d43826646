// The command line of moncl-exporter.
#ifndef MONCL_EXPORTER_OPTIONS_H
#define MONCL_EXPORTER_OPTIONS_H

#include "endpoint.h"
#include "listen_address.h"
#ifdef MONCL_RECORDING
#include "recording.h"
#endif
#include "scrape_worker.h"
#include "web_config.h"

#include <string>
#include <vector>

namespace exporter {

/// What a user asked for.
struct options {
    bool ends = false; ///< there is nothing to run: `status` is that of the program
    int status = 0;
    listen_address listen;
    std::vector<tools::endpoint> servers;
    subject_list subjects; ///< named; empty: the usual ones
    double interval = 1;   ///< seconds between the samples of pages and recordings
    server_access access;
    std::string record; ///< file; empty: nothing is recorded
#ifdef MONCL_RECORDING
    tools::recording_options limits; ///< of the recording
#endif
    web_config web;
    std::vector<std::string> allowed_hosts;
    std::vector<std::string> allowed_targets;
    bool verbose = false;
};

/// Reads the command line and says what is wrong with it on standard error.
/// @throws std::runtime_error if a file that it names is of no use, or it would let strangers in
options read_options(int argc, char** argv);

} // namespace exporter

#endif
