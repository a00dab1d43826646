// The video pipeline: information, statistics and frame rates of its blocks.
#include "board_answer.h"

namespace monsrv {
namespace {

// The answers of a block's further instances follow the first.
void install(sampler_table& table, const host& env) {
    using figures = board_figures;
    for (int i = 0; i < 2; ++i) {
        const auto at = static_cast<std::size_t>(i);
        answer_from_board(
            table, env, video_command, video_request::isp_information + i,
            [at](const figures& now) { return isp_text(now.isp[at]); }, true);
        answer_from_board(table, env, video_command, video_request::isp_rates + i,
                          [at](const figures& now) { return rate_text(now.isp[at].rates); });
        answer_from_board(table, env, video_command, video_request::cim_rates + i,
                          [at](const figures& now) { return rate_text(now.cim[at]); });
    }
    for (int i = 0; i < 3; ++i) {
        const auto at = static_cast<std::size_t>(i);
        answer_from_board(table, env, video_command, video_request::pym_rates + i,
                          [at](const figures& now) { return rate_text(now.pym[at].rates); });
        answer_from_board(
            table, env, video_command, video_request::pym_statistics + i,
            [at](const figures& now) { return pyramid_text(now.pym[at]); }, true);
    }
    answer_from_board(table, env, video_command, video_request::gdc_rates,
                      [](const figures& now) { return output_rate_text(now.gdc); });
    // Clients only check whether there is an answer, and ignore its content.
    answer_from_board(table, env, video_command, video_request::delay,
                      [](const figures&) { return std::string(); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
