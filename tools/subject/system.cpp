// What the machine is: the version of its system and the number of its CPUs.
#include "board.h"
#include "subject.h"

namespace tools {
namespace {

// If the server refuses one of the two figures, that one is unknown and the other is shown.
int ask(board& server, sample& into) {
    value version;
    const int version_code = server.system.get_version();
    if (version_code < 0 && !server.is_servers_own(version_code))
        return version_code;
    if (version_code >= 0 && !server.system.version->ver->version.empty())
        version = server.system.version->ver->version;
    const int cpus =
        server.lately("possible_cpus", [&server] { return server.system.get_cpu_possible(); });
    if (cpus < 0 && (version_code < 0 || !server.is_servers_own(cpus)))
        return cpus;
    into.add(version, cpus > 0 ? value(std::uint64_t(cpus)) : value());
    return 0;
}

const subject_registration registered([] {
    subject system{
        "system",
        "system",
        "Version of the system and number of CPUs",
        {text("version", "Version of the system").column("version", 0),
         gauge("possible_cpus", unit::none, "CPUs that there may ever be").column("CPUs")},
        [](const selection&) -> asker { return ask; }};
    system.place = 1;
    system.changes_slowly = true;
    system.summary_rows = 1;
    return system;
}());

} // namespace
} // namespace tools
