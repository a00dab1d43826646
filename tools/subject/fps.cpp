// Frame rates in and out of the video blocks: camera interface, image signal processor and pyramid
// scaler.
#include "block_instances.h"

#include <map>
#include <utility>

namespace tools {
namespace {

/// Rates of one block, by pipe and instance. The library's own queries keep one rate of each pipe;
/// a pipe that goes through two instances has two.
using rates_in_order = std::map<std::pair<std::uint16_t, std::string>, std::shared_ptr<pipe_fps>>;

template<class Parser>
int ask_block(board& server, const char* block, int first, int count, sample& into) {
    rates_in_order rates;
    const int code = ask_instances(server, block, count, into, [&](int instance) {
        const auto parser = std::make_shared<Parser>();
        const int result = server.video.get_sys_info(first + instance, parser, nullptr);
        if (result >= 0)
            for (const auto& [pipe, each] : parser->fps)
                if (!each->ip_name.empty()) // an empty line decodes as one of pipe 0
                    rates.emplace(std::pair(pipe, each->ip_name), each);
        return result;
    });
    for (const auto& [key, each] : rates)
        into.add(block, each->ip_name, std::to_string(each->pipe_id), each->input_fps,
                 each->output_fps);
    return code;
}

int ask(board& server, sample& into) {
    int refusal = 0;
    bool any = false;
    const auto take = [&](int code) {
        any = any || code >= 0;
        refusal = code < 0 ? code : refusal;
        return code >= 0 || server.is_servers_own(code);
    };
    if (!take(ask_block<cim_parser>(server, "cim", video_request::cim_rates, 2, into)) ||
        !take(ask_block<isp_parser>(server, "isp", video_request::isp_rates, 2, into)) ||
        !take(ask_block<pym_parser>(server, "pym", video_request::pym_rates, 3, into)))
        return refusal;
    return any ? 0 : refusal;
}

// The library's table omits blocks that failed and returns no error. One more query shows the
// error.
int report(board& server, std::ostream& out) {
    server.video.sort_all_vio_fps(&out);
    return server.video.get_cim_fps();
}

const subject_registration registered([] {
    subject fps{"fps",
                "frame_rate",
                "Frame rates in and out of the video blocks, by pipe",
                {label("block", "Block",
                       "cim: camera interface, isp: image signal processor, pym: pyramid scaler"),
                 label("instance", "Instance", "Instance of the block"),
                 label("pipe", "Pipe", "Number of the pipe"),
                 gauge("input_fps", unit::frames_per_second, "Frames that come in, in a second")
                     .column("in_fps"),
                 gauge("output_fps", unit::frames_per_second, "Frames that go out, in a second")
                     .column("out_fps")},
                [](const selection&) -> asker { return ask; }};
    fps.lacking = "this host has no video pipeline (try --simulate-board)";
    fps.library_report = report;
    fps.place = 91;
    fps.summary_rows = 8; // the pipes of the camera interface, on which all others work
    return fps;
}());

} // namespace
} // namespace tools
