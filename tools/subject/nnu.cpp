// Load of the cores of the neural-network accelerator.
#include "block_instances.h"

#include <limits>

namespace tools {
namespace {

int query(nnu_ratio_manager& nnu, int core, std::ostream* out) {
    return core == 0 ? nnu.get_nnu0_ratio(out) : nnu.get_nnu1_ratio(out);
}

int ask(board& server, sample& into) {
    return ask_instances(
        server, "nnu", accelerator_request::load_count, into, [&server, &into](int core) {
            // An answer without a number leaves the load as it was.
            server.nnu.nnu_parser->nnu_rat = std::numeric_limits<float>::quiet_NaN();
            const int code = query(server.nnu, core, nullptr);
            if (code >= 0)
                into.add("nnu" + std::to_string(core), server.nnu.nnu_parser->nnu_rat);
            return code;
        });
}

// The library's report of all cores ends after the first, so the second is asked for here.
int report(board& server, std::ostream& out) {
    const int code = server.nnu.get_nnu_ratio_all(&out);
    return code < 0 ? code : server.nnu.get_nnu1_ratio(&out);
}

const subject_registration registered([] {
    subject nnu{
        "nnu",
        "nnu",
        "Load of the neural-network accelerator's cores",
        {label("core", "Core", "Name of the core"),
         gauge("usage_percent", unit::percent, "Share of time that it computes").column("%usage")},
        [](const selection&) -> asker { return ask; }};
    nnu.lacking = "this host has no NNU (try --simulate-board)";
    nnu.library_report = report;
    nnu.place = 90;
    nnu.summary_rows = 2;
    return nnu;
}());

} // namespace
} // namespace tools
