// The status line of one process: /proc/PID/stat, without its addresses.
#include "process_files.h"
#include "sampler.h"

namespace monsrv {
namespace {

void install(sampler_table& table, const host& env) {
    table.on(cpu_command, cpu_request::process_status, [&env](const request& asked, reply& answer) {
        std::string text;
        const int error = all_processes(env).read_stat(asked.number(), text);
        hide_addresses(text);
        answer.add_lines(text);
        return error;
    });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
