// Sizes and dropped frames of the pyramid scalers.
#include "block_instances.h"

namespace tools {
namespace {

constexpr int instances = 3;

// Only the first character of the mode is on the wire.
value mode_text(std::uint8_t character) {
    return character > ' ' && character <= '~' ? value(std::string(1, static_cast<char>(character)))
                                               : value();
}

// A missing number decodes as 0, which is no width or height of a picture.
value pixels(std::uint32_t count) {
    return count == 0 ? value() : to_value(count);
}

int ask(board& server, sample& into) {
    const auto answer = std::make_shared<whole_text>();
    return ask_instances(server, "pym", instances, into, [&](int i) {
        const int code =
            server.video.get_sys_info(video_request::pym_statistics + i, answer, nullptr);
        if (code < 0)
            return code;
        pym_parser parser;
        parser.parse_pym_stat_msg(answer->text);
        unique_names names;
        for (const auto& each : parser.stat)
            into.add(names.next("pym" + std::to_string(i)), mode_text(each->mode),
                     pixels(each->input_width), pixels(each->input_height), each->hw_drop_cnt,
                     each->sw_drop_cnt, each->isp_drop_cnt);
        return code;
    });
}

field drop_rate(const char* name, const char* help, const char* counter_name) {
    return rate(name, unit::per_second, help).per_second_of(counter_name);
}

const subject_registration registered([] {
    subject pym{
        "pym",
        "pyramid",
        "Sizes and dropped frames of the pyramid scalers",
        {label("instance", "PYM", "Pyramid scaler; pym0.1 for a further one in the same answer"),
         text("mode", "Mode of operation").column("mode", 4),
         gauge("width_pixels", unit::none, "Width of the picture").column("width"),
         gauge("height_pixels", unit::none, "Height of the picture").column("height"),
         counter("hardware_drops", unit::none, "Frames that the hardware dropped")
             .column("hw_drops", 2),
         counter("software_drops", unit::none, "Frames that the software dropped")
             .column("sw_drops", 2),
         counter("isp_drops", unit::none, "Frames that the image signal processor dropped")
             .column("isp_drops", 2),
         drop_rate("hardware_drops_per_second", "Frames that the hardware dropped in a second",
                   "hardware_drops")
             .column("hw_drops/s"),
         drop_rate("software_drops_per_second", "Frames that the software dropped in a second",
                   "software_drops")
             .column("sw_drops/s"),
         drop_rate("isp_drops_per_second",
                   "Frames that the image signal processor dropped in a second", "isp_drops")
             .column("isp_drops/s")},
        [](const selection&) -> asker { return ask; }};
    pym.lacking = "this host has no pyramid scaler (try --simulate-board)";
    pym.place = 93;
    pym.library_report = [](board& server, std::ostream&) { return server.video.get_pym_stat(); };
    return pym;
}());

} // namespace
} // namespace tools
