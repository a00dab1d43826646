// The texts of the video pipeline.
#include "client.h"
#include "fuzz_support.h"

namespace {
bool keys_fit(const fps_map& fps) {
    return std::all_of(fps.begin(), fps.end(),
                       [](const auto& each) { return each.second->pipe_id == each.first; });
}

void decode_rates(const fuzz::text_payload& text, isp_parser& isp, pym_parser& pym) {
    cim_parser cim;
    gdc_parser gdc;
    isp.parse_isp_fps(text.data());
    pym.parse_pym_fps(text.data());
    cim.parse_cim_fps(text.data());
    gdc.parse_gdc_fps(text.data());
    fuzz::expect(keys_fit(isp.fps) && keys_fit(pym.fps) && keys_fit(cim.fps) && keys_fit(gdc.fps),
                 "a pipe under another's number");
}
} // namespace

void fuzz_video(const std::uint8_t* data, std::size_t size) {
    fuzz::input in(data, size);
    const int kind = in.byte() % 3;
    isp_parser isp;
    pym_parser pym;
    for (int i = 0; i < fuzz::most_pieces && !in.empty(); ++i) {
        const fuzz::text_payload text(in.text());
        if (kind == 0)
            decode_rates(text, isp, pym);
        else if (kind == 1)
            isp.parse_isp_info(text.data());
        else
            pym.parse_pym_stat(text.data());
    }
}

static const fuzz::target registered("video", fuzz_video);
