// The video pipeline: information, statistics and frame rates of its blocks.
#include "board_answer.h"

namespace monsrv {
namespace {

constexpr int command = 0xAE08;

// Of the first number of each block the answers follow in the order of its instances.
enum first_sub_command {
    isp_information = 1,
    isp_rates = 3,
    cim_rates = 5,
    pym_rates = 7,
    gdc_rates = 10,
    pym_statistics = 11,
    delay = 14
};

void install(sampler_table& table, const host& env) {
    using figures = board_figures;
    for (int i = 0; i < 2; ++i) {
        const auto at = static_cast<std::size_t>(i);
        answer_from_board(
            table, env, command, isp_information + i,
            [at](const figures& now) { return isp_text(now.isp[at]); }, true);
        answer_from_board(table, env, command, isp_rates + i,
                          [at](const figures& now) { return rate_text(now.isp[at].rates); });
        answer_from_board(table, env, command, cim_rates + i,
                          [at](const figures& now) { return rate_text(now.cim[at]); });
    }
    for (int i = 0; i < 3; ++i) {
        const auto at = static_cast<std::size_t>(i);
        answer_from_board(table, env, command, pym_rates + i,
                          [at](const figures& now) { return rate_text(now.pym[at].rates); });
        answer_from_board(
            table, env, command, pym_statistics + i,
            [at](const figures& now) { return pyramid_text(now.pym[at]); }, true);
    }
    answer_from_board(table, env, command, gdc_rates,
                      [](const figures& now) { return output_rate_text(now.gdc); });
    // Clients look at whether there is an answer, and at nothing in it.
    answer_from_board(table, env, command, delay, [](const figures&) { return std::string(); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
