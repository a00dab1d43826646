// Use cases of the image signal processors.
#include "block_instances.h"

namespace tools {
namespace {

constexpr int instances = 2;

// A count is one character on the wire.
value digit(std::uint8_t character) {
    return character >= '0' && character <= '9' ? value(std::uint64_t{character} - '0') : value();
}

// A missing number decodes as 0, which is no width or height of a picture.
value pixels(std::uint32_t count) {
    return count == 0 ? value() : to_value(count);
}

void add_row(const std::string& instance, const isp_info& info, sample& into) {
    into.add(instance, std::to_string(info.pipe_id), pixels(info.s_Width), pixels(info.s_Height),
             info.frame_rate, digit(info.ctx_count), digit(info.active), digit(info.unactive),
             info.dev_sched_mode.empty() ? value() : value(info.dev_sched_mode));
}

int ask(board& server, sample& into) {
    const auto answer = std::make_shared<whole_text>();
    return ask_instances(server, "isp", instances, into, [&](int i) {
        const int code =
            server.video.get_sys_info(video_request::isp_information + i, answer, nullptr);
        if (code < 0)
            return code;
        isp_parser parser;
        parser.parse_isp_info_msg(answer->text);
        std::map<std::uint32_t, unique_names> names; // by pipe
        for (const auto& each : parser.info)
            add_row(names[each->pipe_id].next("isp" + std::to_string(i)), *each, into);
        return code;
    });
}

const subject_registration registered([] {
    subject isp{
        "isp",
        "isp",
        "Use cases of the image signal processors",
        {label("instance", "ISP", "Image signal processor; isp0.1 for its second use of a pipe"),
         label("pipe", "Pipe", "Number of the pipe"),
         gauge("width_pixels", unit::none, "Width of the sensor's picture").column("width"),
         gauge("height_pixels", unit::none, "Height of the sensor's picture").column("height"),
         gauge("frame_rate_fps", unit::frames_per_second, "Frame rate of the sensor").column("fps"),
         gauge("contexts", unit::none, "Contexts of the firmware; the wire has one digit")
             .column("contexts", 3),
         gauge("active_contexts", unit::none, "Active contexts; the wire has one digit")
             .column("active", 2),
         gauge("inactive_contexts", unit::none, "Inactive contexts; the wire has one digit")
             .column("inactive", 3),
         text("scheduling", "Scheduling mode").column("scheduling", 2)},
        [](const selection&) -> asker { return ask; }};
    isp.lacking = "this host has no image signal processor (try --simulate-board)";
    isp.place = 92;
    isp.library_report = [](board& server, std::ostream&) { return server.video.get_isp_info(); };
    return isp;
}());

} // namespace
} // namespace tools
