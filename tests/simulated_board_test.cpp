// The simulated board: its figures by themselves, as text for clients, through a server and moncl.
#include "board_answer.h"
#include "child_process.h"
#include "client.h"
#include "log_capture.h"
#include "peri_stat_manager.h"
#include "running_server.h"
#include "vio_info_manager.h"

#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <tuple>

using monsrv::board_figures;
using monsrv::simulated_board;
using std::chrono::milliseconds;

namespace {
// What follows from chance and time, as text.
std::string all_figures(const board_figures& figures) {
    std::string text = monsrv::load_text(figures.nnu_load[0]);
    for (const auto& rates : figures.cim)
        text += monsrv::rate_text(rates);
    for (const auto& isp : figures.isp)
        text += monsrv::isp_text(isp);
    for (const auto& pym : figures.pym)
        text += monsrv::pyramid_text(pym);
    for (std::uint64_t temperature : figures.temperatures)
        text += std::to_string(temperature) + " ";
    for (const ion_info& heap : figures.heaps)
        text += std::to_string(heap.used) + " ";
    return text;
}

void expect_rates(const std::vector<monsrv::block_rate>& expected, const fps_map& read,
                  bool has_input = true) {
    ASSERT_EQ(read.size(), expected.size());
    for (const auto& rate : expected) {
        const pipe_fps& found = *read.at(rate.pipe);
        EXPECT_EQ(std::tie(found.ip_name, found.output_fps), std::tie(rate.name, rate.output));
        EXPECT_EQ(found.input_fps, has_input ? rate.input : 0);
        EXPECT_LE(rate.output, rate.input);
    }
}

void expect_use_cases(const monsrv::isp_state& isp, const std::shared_ptr<isp_info>* read) {
    for (const auto& expected : isp.use_cases) {
        const isp_info& found = **read++;
        EXPECT_EQ(std::tuple(found.pipe_id, found.s_Width, found.s_Height, found.frame_rate),
                  std::tuple(expected.pipe, expected.mode.width, expected.mode.height,
                             expected.mode.rate));
        EXPECT_EQ(found.ctx_count, '0' + isp.contexts);
        EXPECT_EQ(found.active - '0' + found.unactive - '0', static_cast<int>(isp.contexts));
        EXPECT_EQ(found.dev_sched_mode, isp.schedule);
    }
}
} // namespace

TEST(simulated_board, follows_from_seed_and_time_alone) {
    const milliseconds noon(43200000);
    const simulated_board board(7);
    board.at(milliseconds(5)); // asked before, at another time: leaves no trace
    const std::string text = all_figures(board.at(noon));
    EXPECT_EQ(all_figures(simulated_board(7).at(noon)), text);
    EXPECT_NE(all_figures(simulated_board(8).at(noon)), text);
    EXPECT_NE(all_figures(board.at(noon + milliseconds(2000))), text);
    EXPECT_EQ(all_figures(board.at(milliseconds(-1))), all_figures(board.at(milliseconds(0))));
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
            EXPECT_LE(load, 1000U);
        for (const auto& isp : now.isp)
            EXPECT_TRUE(isp.contexts <= 9 && isp.active_contexts <= isp.contexts);
        before = std::move(now);
    }
    EXPECT_GT(before.pym[0].hardware_drops, 0U);
}

TEST(simulated_board, texts_decode_to_its_figures) {
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        SCOPED_TRACE(seed);
        const board_figures figures = simulated_board(seed).at(milliseconds(123456789 * seed));
        nnu_ratio_parser nnu;
        nnu.parse_nnu_msg(monsrv::load_text(figures.nnu_load[0]));
        EXPECT_FLOAT_EQ(nnu.nnu_rat, static_cast<float>(figures.nnu_load[0]) / 10);
        for (const auto& rates : figures.cim) {
            cim_parser cim;
            cim.parse_cim_fps_msg(monsrv::rate_text(rates));
            expect_rates(rates, cim.fps);
        }
        for (const auto& isp : figures.isp) {
            isp_parser parser;
            parser.parse_isp_fps_msg(monsrv::rate_text(isp.rates));
            expect_rates(isp.rates, parser.fps);
            parser.parse_isp_info_msg(monsrv::isp_text(isp));
            ASSERT_EQ(parser.info.size(), isp.use_cases.size());
            expect_use_cases(isp, parser.info.data());
            EXPECT_EQ(parser.info[0]->active, '0' + isp.active_contexts);
        }
        for (const auto& pym : figures.pym) {
            pym_parser parser;
            parser.parse_pym_fps_msg(monsrv::rate_text(pym.rates));
            expect_rates(pym.rates, parser.fps);
            parser.parse_pym_stat_msg(monsrv::pyramid_text(pym));
            ASSERT_EQ(parser.stat.size(), 1U);
            const pym_stat& stat = *parser.stat[0];
            EXPECT_EQ(stat.mode, '0' + pym.mode);
            EXPECT_EQ(std::tie(stat.input_width, stat.input_height, stat.hw_drop_cnt,
                               stat.sw_drop_cnt, stat.isp_drop_cnt),
                      std::tie(pym.input.width, pym.input.height, pym.hardware_drops,
                               pym.software_drops, pym.isp_drops));
        }
        gdc_parser gdc;
        gdc.parse_gdc_fps_msg(monsrv::output_rate_text(figures.gdc));
        expect_rates(figures.gdc, gdc.fps, false);
    }
}

TEST(simulated_board, isp_information_arrives_whole) {
    const running_server server(monsrv::server_options{"/", true, 5});
    vio_info_manager vio;
    vio.client = server.connect();
    cout_capture reports;
    ASSERT_EQ(vio.get_isp_info(), 0);
    EXPECT_GT(vio.client->get_recv_data()->sum_packet, 1);
    const auto isp = simulated_board(5).now().isp;
    const std::size_t first = isp[0].use_cases.size();
    ASSERT_EQ(vio.isp_parse->info.size(), first + isp[1].use_cases.size());
    expect_use_cases(isp[0], vio.isp_parse->info.data());
    expect_use_cases(isp[1], vio.isp_parse->info.data() + first);
    // What the decoder skips has not lost a byte either.
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(vio.joined_parts.data())).size(),
              monsrv::isp_text(isp[1]).size());
}

TEST(simulated_board, stands_in_only_for_sensors_the_host_lacks) {
    const file_tree tree;
    const running_server server(monsrv::server_options{tree.root(), true, 1});
    peri_stat_manager peri;
    peri.client = server.connect();
    const board_figures figures = simulated_board(1).now();
    EXPECT_EQ(peri.get_all_thermal(nullptr), 0);
    EXPECT_EQ(peri.all_th_parser->all_th.size(), figures.temperatures.size());
    EXPECT_EQ(peri.all_th_parser->all_co.size(), figures.cooling.size());
    EXPECT_EQ(peri.get_thermal(3, nullptr), 0);
    EXPECT_GT(peri.th_parser->temp, 30000U);
    EXPECT_EQ(peri.get_thermal(3 + static_cast<int>(figures.temperatures.size()), nullptr),
              -ENOENT);
    EXPECT_EQ(peri.get_cooling_1(nullptr), 0);
    EXPECT_EQ(peri.get_ion_info(nullptr), 0);
    EXPECT_EQ(peri.ion_parser->ion_vec.size(), figures.heaps.size());

    tree.write("/sys/class/thermal/thermal_zone1/temp", "21000\n");
    tree.write("/sys/kernel/debug/ion/heaps/system", "total 4096\n");
    while (peri.get_thermal(4, nullptr) != 0) {
    } // on a busy machine a sensor may come late
    EXPECT_EQ(peri.get_thermal(3, nullptr), -ENOENT);
    EXPECT_EQ(peri.get_all_thermal(nullptr), 0);
    EXPECT_EQ(peri.all_th_parser->all_th, (std::vector<std::uint64_t>{0, 21000}));
    EXPECT_EQ(peri.all_th_parser->all_co.size(), figures.cooling.size());
    EXPECT_EQ(peri.get_ion_info(nullptr), 0);
    EXPECT_EQ(peri.ion_parser->ion_vec.size(), 1U);
}

TEST(video_commands, show_each_record_once) {
    for (const auto& [command, lines] :
         {std::pair("nnu", 3), {"fps", 9}, {"isp", 7}, {"pym", 4}, {"gdc", 4}, {"delay", 1}}) {
        child_process with({MONCL_PROGRAM, command, "--simulate-board"});
        EXPECT_EQ(with.wait(), 0);
        EXPECT_EQ(std::count(with.out.begin(), with.out.end(), '\n'), lines) << with.out;
        EXPECT_NE(with.err.find("are simulated"), std::string::npos);
        child_process without({MONCL_PROGRAM, command});
        EXPECT_EQ(without.wait(), 1);
        EXPECT_EQ(without.out, "");
        EXPECT_NE(without.err.find("No such device"), std::string::npos);
    }
}
