// moncl record: samples into a file.
#include "library_output.h"
#include "program.h"
#include "recording.h"

#include <algorithm>
#include <unistd.h>

namespace tools {
namespace {

constexpr std::size_t usual_rows = 20; // of busiest processes

recording_options options_of(const invocation& called) {
    recording_options options;
    for (const auto& [name, text] : called.options) {
        if (name == "--sync")
            options.sync_seconds = *read_duration(text);
        else if (name == "--keep")
            options.keep_seconds = *read_duration(text);
        else if (name == "--max-size")
            options.max_bytes = *read_size(text);
        else
            options.max_wal_bytes = *read_size(text);
    }
    return options;
}

// All that the host may have. `monitor` is about this program, not about the host.
std::vector<const subject*> subjects_of_host(const selection& chosen) {
    std::vector<const subject*> all;
    for (const subject* each : all_subjects())
        if (!each->asks_nobody && (!each->needs_pids || !chosen.pids.empty()))
            all.push_back(each);
    return all;
}

int run(const invocation& asked, std::ostream& err) {
    invocation called = asked;
    if (called.form != "table" || called.library_report || !called.from.empty())
        throw std::runtime_error("record writes a file: it takes no form, report or recording");
    const bool named = !called.subjects.empty();
    if (!named)
        called.subjects = subjects_of_host(called.chosen);
    if (called.chosen.rows == 0)
        called.chosen.rows = usual_rows;
    if (called.when.interval == 0)
        called.when.interval = 1;
    stop_signal stop; // before any thread
    const library_output printed;
    recording to_file(called.words.front(), options_of(called), err);
    server_set servers = make_server_sources(called, to_file, err);
    writer to(STDOUT_FILENO);
    session_plan plan = plan_of_session(called);
    plan.named = named;
    plan.averages = false;
    session running(std::move(servers.sources), plan, to_file, to, err);
    const bool well = running.run(stop);
    if (to_file.lost() > 0)
        err << "moncl: reports that could not be recorded: " << to_file.lost() << std::endl;
    return well && to_file.lost() == 0 ? exit_ok : exit_failed;
}

const command_registration registered(
    {"record",
     "FILE [SUBJECT[,SUBJECT...]] [INTERVAL [COUNT]] [OPTION...]",
     "Records all that the host has, or some subjects, in an SQLite file",
     1,
     {{"--sync", "SECONDS", "Write at least that often (10 s): what a kill may lose",
       duration_fault},
      {"--keep", "TIME", "Delete what is older, such as 7d", duration_fault},
      {"--max-size", "SIZE", "Delete the oldest when the file gets that large, such as 200M",
       size_fault},
      {"--max-wal", "SIZE",
       "Pause when a reader keeps the file's log from being emptied and it is that large (32M)",
       size_fault}},
     false,
     run});

} // namespace
} // namespace tools
