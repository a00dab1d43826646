// The simulated board: its figures by themselves, as text for clients, and through a server.
#include "board_answer.h"
#include "client.h"
#include "log_capture.h"
#include "nnu_ratio_manager.h"
#include "running_server.h"
#include "vio_info_manager.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <numeric>

using monsrv::board_figures;
using monsrv::simulated_board;
using std::chrono::milliseconds;

namespace {
// Every answer of a board, each in the text clients get.
std::string all_texts(const board_figures& figures) {
    std::string text;
    for (unsigned load : figures.nnu_load)
        text += monsrv::load_text(load);
    for (const auto& rates : figures.cim)
        text += monsrv::rate_text(rates);
    for (const auto& isp : figures.isp)
        text += monsrv::isp_text(isp) + monsrv::rate_text(isp.rates);
    for (const auto& pym : figures.pym)
        text += monsrv::pyramid_text(pym) + monsrv::rate_text(pym.rates);
    text += monsrv::output_rate_text(figures.gdc);
    for (std::uint64_t figure : figures.temperatures)
        text += std::to_string(figure) + "\n";
    for (const ion_info& heap : figures.heaps)
        text += std::string(field_text(heap.ion_name)) + std::to_string(heap.used) + "\n";
    return text;
}

void expect_rates(const std::vector<monsrv::block_rate>& expected, const fps_map& read,
                  bool has_input) {
    ASSERT_EQ(read.size(), expected.size());
    for (const auto& rate : expected) {
        ASSERT_EQ(read.count(rate.pipe), 1u);
        const pipe_fps& found = *read.at(rate.pipe);
        EXPECT_EQ(found.ip_name, rate.name);
        EXPECT_EQ(found.input_fps, has_input ? rate.input : 0);
        EXPECT_EQ(found.output_fps, rate.output);
        EXPECT_LE(rate.output, rate.input);
    }
}

int digit(std::uint8_t character) {
    return character - '0';
}

void expect_use_cases(const monsrv::isp_state& isp, const std::shared_ptr<isp_info>* read) {
    for (const auto& expected : isp.use_cases) {
        const isp_info& found = **read++;
        EXPECT_EQ(found.pipe_id, expected.pipe);
        EXPECT_EQ(found.s_Width, expected.mode.width);
        EXPECT_EQ(found.s_Height, expected.mode.height);
        EXPECT_EQ(found.frame_rate, expected.mode.rate);
        EXPECT_EQ(digit(found.ctx_count), static_cast<int>(isp.contexts));
        EXPECT_EQ(digit(found.active) + digit(found.unactive), digit(found.ctx_count));
        EXPECT_EQ(found.dev_sched_mode, isp.schedule);
    }
}

monsrv::server_options with_board(std::uint32_t seed) {
    monsrv::server_options options;
    options.simulate_board = true;
    options.seed = seed;
    return options;
}
} // namespace

TEST(simulated_board, follows_from_seed_and_time_alone) {
    const milliseconds noon(43200000);
    const simulated_board board(7);
    board.at(milliseconds(5)); // asked before, at another time: leaves no trace
    const std::string text = all_texts(board.at(noon));
    EXPECT_EQ(all_texts(simulated_board(7).at(noon)), text);
    EXPECT_NE(all_texts(simulated_board(8).at(noon)), text);
    EXPECT_NE(all_texts(board.at(noon + milliseconds(2000))), text);
    EXPECT_EQ(all_texts(board.at(milliseconds(-1))), all_texts(board.at(milliseconds(0))));
}

TEST(simulated_board, counts_up_and_stays_in_range) {
    const simulated_board board(3);
    board_figures before = board.at(milliseconds(0));
    for (milliseconds at(0); at < std::chrono::minutes(20); at += milliseconds(997)) {
        board_figures now = board.at(at);
        for (std::size_t i = 0; i < now.pym.size(); ++i) {
            EXPECT_GE(now.pym[i].hardware_drops, before.pym[i].hardware_drops);
            EXPECT_GE(now.pym[i].software_drops, before.pym[i].software_drops);
            EXPECT_GE(now.pym[i].isp_drops, before.pym[i].isp_drops);
        }
        for (unsigned load : now.nnu_load)
            EXPECT_LE(load, 1000u);
        for (const auto& isp : now.isp)
            EXPECT_TRUE(isp.contexts <= 9 && isp.active_contexts <= isp.contexts);
        for (std::uint64_t temperature : now.temperatures)
            EXPECT_TRUE(temperature > 30000 && temperature < 100000) << temperature;
        before = std::move(now);
    }
    EXPECT_GT(before.pym[0].hardware_drops, 0u);
}

TEST(simulated_board, texts_decode_to_its_figures) {
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        SCOPED_TRACE(seed);
        const board_figures figures = simulated_board(seed).at(milliseconds(123456789 * seed));
        for (unsigned load : figures.nnu_load) {
            nnu_ratio_parser nnu;
            nnu.parse_nnu_msg(monsrv::load_text(load));
            EXPECT_FLOAT_EQ(nnu.nnu_rat, static_cast<float>(load) / 10);
        }
        for (const auto& rates : figures.cim) {
            cim_parser cim;
            cim.parse_cim_fps_msg(monsrv::rate_text(rates));
            expect_rates(rates, cim.fps, true);
        }
        for (const auto& isp : figures.isp) {
            isp_parser parser;
            parser.parse_isp_fps_msg(monsrv::rate_text(isp.rates));
            expect_rates(isp.rates, parser.fps, true);
            parser.parse_isp_info_msg(monsrv::isp_text(isp));
            ASSERT_EQ(parser.info.size(), isp.use_cases.size());
            expect_use_cases(isp, parser.info.data());
            EXPECT_EQ(digit(parser.info[0]->active), static_cast<int>(isp.active_contexts));
        }
        for (const auto& pym : figures.pym) {
            pym_parser parser;
            parser.parse_pym_fps_msg(monsrv::rate_text(pym.rates));
            expect_rates(pym.rates, parser.fps, true);
            parser.parse_pym_stat_msg(monsrv::pyramid_text(pym));
            ASSERT_EQ(parser.stat.size(), 1u);
            const pym_stat& stat = *parser.stat[0];
            EXPECT_EQ(digit(stat.mode), static_cast<int>(pym.mode));
            EXPECT_EQ(stat.input_width, pym.input.width);
            EXPECT_EQ(stat.input_height, pym.input.height);
            EXPECT_EQ(stat.hw_drop_cnt, pym.hardware_drops);
            EXPECT_EQ(stat.sw_drop_cnt, pym.software_drops);
            EXPECT_EQ(stat.isp_drop_cnt, pym.isp_drops);
        }
        gdc_parser gdc;
        gdc.parse_gdc_fps_msg(monsrv::output_rate_text(figures.gdc));
        expect_rates(figures.gdc, gdc.fps, false);
    }
}

namespace {
using nnu_query = int (nnu_ratio_manager::*)(std::ostream*);
using vio_query = int (vio_info_manager::*)();
constexpr nnu_query nnu_queries[] = {&nnu_ratio_manager::get_nnu0_ratio,
                                     &nnu_ratio_manager::get_nnu1_ratio,
                                     &nnu_ratio_manager::get_nnu_ratio_all};
constexpr vio_query vio_queries[] = {
    &vio_info_manager::get_isp_info, &vio_info_manager::get_isp_fps, &vio_info_manager::get_cim_fps,
    &vio_info_manager::get_pym_fps,  &vio_info_manager::get_gdc_fps, &vio_info_manager::get_pym_stat,
    &vio_info_manager::get_vio_delay};

void expect_from_all(const running_server& server, int code) {
    nnu_ratio_manager nnu(server.connect());
    for (nnu_query query : nnu_queries)
        EXPECT_EQ((nnu.*query)(nullptr), code);
    vio_info_manager vio(server.connect());
    for (vio_query query : vio_queries)
        EXPECT_EQ((vio.*query)(), code);
}
} // namespace
