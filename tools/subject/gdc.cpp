// Frame rates out of the distortion correction.
#include "board.h"
#include "subject.h"

#include <map>

namespace tools {
namespace {

int ask(board& server, sample& into) {
    const int code = server.video.get_gdc_fps();
    if (code < 0)
        return code;
    const fps_map& fps = server.video.gdc_parse->fps;
    const std::map by_pipe(fps.begin(), fps.end());
    for (const auto& [pipe, each] : by_pipe)
        if (!each->ip_name.empty()) // an empty line decodes as one of pipe 0
            into.add(std::to_string(pipe), each->ip_name, each->output_fps);
    return code;
}

const subject_registration registered([] {
    subject gdc{"gdc",
                "distortion_correction",
                "Frame rates out of the distortion correction, by pipe",
                {label("pipe", "Pipe", "Number of the pipe"),
                 label("instance", "Instance", "Instance of the distortion correction"),
                 gauge("output_fps", unit::frames_per_second, "Frames that go out, in a second")
                     .column("out_fps")},
                [](const selection&) -> asker { return ask; }};
    gdc.lacking = "this host has no distortion correction (try --simulate-board)";
    gdc.place = 94;
    return gdc;
}());

} // namespace
} // namespace tools
