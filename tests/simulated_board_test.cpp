// The simulated board: its figures by themselves, as text for clients, through a server and moncl.
#include "board_answer.h"
#include "child_process.h"
#include "client.h"
#include "manager_support.h"
#include "peri_stat_manager.h"
#include "running_server.h"
#include "vio_info_manager.h"

#include <algorithm>
#include <cerrno>
#include <map>

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

std::string shown(const monsrv::isp_state& isp) {
    std::string all;
    for (const auto& [pipe, mode] : isp.use_cases)
        all += line_of(pipe, mode.width, mode.height, mode.rate, isp.contexts, isp.active_contexts,
                       isp.schedule);
    return all;
}

std::string shown(const std::vector<std::shared_ptr<isp_info>>& isp) {
    std::string all;
    for (const auto& info : isp) {
        EXPECT_EQ(info->active - '0' + info->unactive, info->ctx_count);
        all += line_of(info->pipe_id, info->s_Width, info->s_Height, info->frame_rate,
                       info->ctx_count, info->active, info->dev_sched_mode);
    }
    return all;
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
        for (const auto& rates : figures.cim) {
            cim_parser cim;
            cim.parse_cim_fps_msg(monsrv::rate_text(rates));
            EXPECT_EQ(shown(cim.fps), shown(rates));
        }
        for (const auto& isp : figures.isp) {
            isp_parser parser;
            parser.parse_isp_fps_msg(monsrv::rate_text(isp.rates));
            parser.parse_isp_info_msg(monsrv::isp_text(isp));
            EXPECT_EQ(shown(parser.fps), shown(isp.rates));
            EXPECT_EQ(shown(parser.info), shown(isp));
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

TEST(simulated_board, isp_information_arrives_whole) {
    const running_server server(monsrv::server_options{"/", true, 5});
    vio_info_manager vio;
    vio.client = server.connect();
    cout_capture reports;
    ASSERT_EQ(vio.get_isp_info(), 0);
    EXPECT_GT(vio.client->get_recv_data()->sum_packet, 1);
    const auto isp = simulated_board(5).now().isp;
    EXPECT_EQ(shown(vio.isp_parse->info), shown(isp[0]) + shown(isp[1]));
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

// The heading, and a line for each record.
TEST(simulated_board, is_shown_record_by_record_and_missed_in_words) {
    const struct {
        const char* subject;
        int lines;
        const char* lacking;
    } cases[] = {{"nnu", 3, "this host has no NNU (try --simulate-board)"},
                 {"fps", 23, "this host has no video pipeline (try --simulate-board)"},
                 {"isp", 7, "this host has no image signal processor (try --simulate-board)"},
                 {"pym", 4, "this host has no pyramid scaler (try --simulate-board)"},
                 {"gdc", 4, "this host has no distortion correction (try --simulate-board)"}};
    for (const auto& each : cases) {
        child_process with({MONCL_PROGRAM, each.subject, "--simulate-board"});
        EXPECT_EQ(with.wait(), 0);
        EXPECT_EQ(std::count(with.out.begin(), with.out.end(), '\n'), each.lines) << with.out;
        EXPECT_NE(with.err.find("are simulated"), std::string::npos);
        child_process without({MONCL_PROGRAM, each.subject});
        EXPECT_EQ(without.wait(), 1);
        EXPECT_EQ(without.out + without.err, "moncl: " + std::string(each.lacking) + "\n");
    }
}
