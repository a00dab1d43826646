// The simulated board: its figures by themselves, as text for clients, through a server and moncl.
#include "board_answer.h"
#include "child_process.h"
#include "client.h"
#include "manager_support.h"
#include "peri_stat_manager.h"
#include "running_server.h"
#include "vio_info_manager.h"

#include <cerrno>
#include <map>

using monsrv::board_figures;
using monsrv::simulated_board;
using std::chrono::milliseconds;

namespace {
// Some values that follow from seed and time, as text.
std::string some_figures(const board_figures& figures) {
    return monsrv::load_text(figures.nnu_load[0]) + monsrv::rate_text(figures.cim[1]) +
           monsrv::isp_text(figures.isp[1]) + monsrv::pyramid_text(figures.pym[2]) +
           line_of(figures.temperatures[0], figures.heaps[0].used);
}

// Rates by pipe, of the board and as decoded.
using rates_by_pipe = std::map<std::uint16_t, std::string>;

rates_by_pipe shown(const std::vector<monsrv::block_rate>& rates, bool has_input = true) {
    rates_by_pipe all;
    for (const auto& rate : rates) {
        EXPECT_LE(rate.output, rate.input);
        all[rate.pipe] = line_of(rate.name, has_input ? rate.input : 0, rate.output);
    }
    return all;
}

rates_by_pipe shown(const fps_map& rates) {
    rates_by_pipe all;
    for (const auto& [pipe, rate] : rates)
        all[pipe] = line_of(rate->ip_name, rate->input_fps, rate->output_fps);
    return all;
}
} // namespace

TEST(simulated_board, follows_from_seed_and_time_alone) {
    const milliseconds noon(43200000);
    const simulated_board board(7);
    board.at(milliseconds(5)); // an earlier question must not change the next answer
    const std::string text = some_figures(board.at(noon));
    EXPECT_EQ(some_figures(simulated_board(7).at(noon)), text);
    EXPECT_NE(some_figures(simulated_board(8).at(noon)), text);
    EXPECT_NE(some_figures(board.at(noon + milliseconds(2000))), text);
    EXPECT_EQ(some_figures(board.at(milliseconds(-1))), some_figures(board.at(milliseconds(0))));
}

TEST(simulated_board, texts_decode_to_its_figures) {
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        SCOPED_TRACE(seed);
        const milliseconds time(123456789 * seed);
        const board_figures figures = simulated_board(seed).at(time);
        const board_figures later = simulated_board(seed).at(time + milliseconds(997));
        nnu_ratio_parser nnu;
        nnu.parse_nnu_msg(monsrv::load_text(figures.nnu_load[0]));
        EXPECT_LE(nnu.nnu_rat, 100);
        EXPECT_FLOAT_EQ(nnu.nnu_rat, static_cast<float>(figures.nnu_load[0]) / 10);
        for (const auto& isp : figures.isp) {
            isp_parser parser;
            parser.parse_isp_fps_msg(monsrv::rate_text(isp.rates));
            parser.parse_isp_info_msg(monsrv::isp_text(isp));
            EXPECT_EQ(shown(parser.fps), shown(isp.rates));
            ASSERT_EQ(parser.info.size(), isp.use_cases.size());
            for (std::size_t i = 0; i < parser.info.size(); ++i) {
                const isp_info& info = *parser.info[i];
                const auto& [pipe, mode] = isp.use_cases[i];
                EXPECT_EQ(line_of(info.pipe_id, info.s_Width, info.s_Height, info.frame_rate),
                          line_of(pipe, mode.width, mode.height, mode.rate));
                EXPECT_EQ(info.active - '0' + info.unactive, info.ctx_count);
            }
        }
        for (const auto& pym : figures.pym) {
            pym_parser parser;
            parser.parse_pym_fps_msg(monsrv::rate_text(pym.rates));
            parser.parse_pym_stat_msg(monsrv::pyramid_text(pym));
            EXPECT_EQ(shown(parser.fps), shown(pym.rates));
            const pym_stat& stat = *parser.stat.at(0);
            EXPECT_EQ(line_of(stat.mode - '0', stat.input_width, stat.input_height,
                              stat.hw_drop_cnt, stat.sw_drop_cnt, stat.isp_drop_cnt),
                      line_of(pym.mode, pym.input.width, pym.input.height, pym.hardware_drops,
                              pym.software_drops, pym.isp_drops));
            const auto& then = later.pym[static_cast<std::size_t>(&pym - figures.pym.data())];
            EXPECT_TRUE(then.hardware_drops >= pym.hardware_drops &&
                        then.software_drops >= pym.software_drops &&
                        then.isp_drops >= pym.isp_drops);
        }
        gdc_parser gdc;
        gdc.parse_gdc_fps_msg(monsrv::output_rate_text(figures.gdc));
        EXPECT_EQ(shown(gdc.fps), shown(figures.gdc, false));
    }
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
    EXPECT_EQ(peri.get_cooling_1(nullptr), 0);
    EXPECT_EQ(peri.get_ion_info(nullptr), 0);
    EXPECT_EQ(peri.ion_parser->ion_vec.size(), figures.heaps.size());

    tree.write("/sys/class/thermal/thermal_zone1/temp", "21000\n");
    tree.write("/sys/kernel/debug/ion/heaps/system", "total 4096\n");
    usleep(150000); // answers about sensors are shared for a tenth of a second
    while (peri.get_thermal(4, nullptr) != 0) {
    } // on a busy machine a sensor may come late
    EXPECT_EQ(peri.get_thermal(3, nullptr), -ENOENT);
    EXPECT_EQ(peri.get_all_thermal(nullptr), 0);
    EXPECT_EQ(peri.all_th_parser->all_th,
              (std::vector<std::uint64_t>{static_cast<std::uint64_t>(-274000), 21000}));
    EXPECT_EQ(peri.all_th_parser->all_co.size(), figures.cooling.size());
    EXPECT_EQ(peri.get_ion_info(nullptr), 0);
    EXPECT_EQ(peri.ion_parser->ion_vec.size(), 1U);
}
