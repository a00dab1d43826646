// The simulated board: its figures by themselves, as text for clients, and through a server.
#include "board_answer.h"
#include "child_process.h"
#include "client.h"
#include "log_capture.h"
#include "nnu_ratio_manager.h"
#include "running_server.h"
#include "scripted_server.h"
#include "vio_info_manager.h"

#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <sstream>

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

TEST(simulated_board, answers_every_query_and_no_host_without_one_does) {
    using nnu_query = int (nnu_ratio_manager::*)(std::ostream*);
    const nnu_query nnu_queries[] = {&nnu_ratio_manager::get_nnu0_ratio,
                                     &nnu_ratio_manager::get_nnu1_ratio,
                                     &nnu_ratio_manager::get_nnu_ratio_all};
    using vio_query = int (vio_info_manager::*)();
    const vio_query vio_queries[] = {
        &vio_info_manager::get_isp_info, &vio_info_manager::get_isp_fps,
        &vio_info_manager::get_cim_fps,  &vio_info_manager::get_pym_fps,
        &vio_info_manager::get_gdc_fps,  &vio_info_manager::get_pym_stat,
        &vio_info_manager::get_vio_delay};
    for (const auto& [options, code] : {std::pair(with_board(1), 0), {{}, -ENODEV}}) {
        SCOPED_TRACE(code);
        const running_server server(options);
        nnu_ratio_manager nnu;
        vio_info_manager vio;
        nnu.client = vio.client = server.connect();
        cout_capture reports;
        for (const auto& query : nnu_queries)
            EXPECT_EQ((nnu.*query)(nullptr), code);
        for (const auto& query : vio_queries)
            EXPECT_EQ((vio.*query)(), code);
        std::ostringstream table;
        EXPECT_EQ(vio.sort_all_vio_fps(&table), code == 0 ? 8 : 0);
    }
}

TEST(simulated_board, isp_information_arrives_whole) {
    const running_server server(with_board(5));
    vio_info_manager vio;
    vio.client = server.connect();
    cout_capture reports;
    ASSERT_EQ(vio.get_isp_info(), 0);
    EXPECT_GT(vio.client->get_recv_data()->sum_packet, 1);
    const board_figures figures = simulated_board(5).now();
    const std::size_t first = figures.isp[0].use_cases.size();
    ASSERT_EQ(vio.isp_parse->info.size(), first + figures.isp[1].use_cases.size());
    expect_use_cases(figures.isp[0], vio.isp_parse->info.data());
    expect_use_cases(figures.isp[1], vio.isp_parse->info.data() + first);
    // What its decoder skips has not lost a byte either.
    EXPECT_EQ(
        std::char_traits<char>::length(reinterpret_cast<const char*>(vio.joined_parts.data())),
        monsrv::isp_text(figures.isp[1]).size());
}

TEST(simulated_board, commands_show_each_record_once) {
    const struct {
        const char* command;
        int lines;
    } cases[] = {{"nnu", 3}, {"fps", 9}, {"isp", 7}, {"pym", 4}, {"gdc", 4}, {"delay", 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        child_process with({MONCL_PROGRAM, c.command, "--simulate-board"});
        EXPECT_EQ(with.wait(), 0);
        EXPECT_EQ(std::count(with.out.begin(), with.out.end(), '\n'), c.lines) << with.out;
        EXPECT_NE(with.err.find("are simulated"), std::string::npos);
        child_process without({MONCL_PROGRAM, c.command});
        EXPECT_EQ(without.wait(), 1);
        EXPECT_EQ(without.out, "");
        EXPECT_NE(without.err.find("No such device"), std::string::npos);
        EXPECT_EQ(without.err.find("simulated"), std::string::npos);
    }
}

TEST(video_commands, say_what_went_wrong) {
    const struct {
        const char* what;
        const char* command;
        scripted_server::script answers;
        int status;
        const char* out;
        const char* complaint;
    } cases[] = {
        {"a count line that no decoder reads", "pym",
         [](int, int sub, const std::string&) -> answer_packets {
             return {packet(sub, "=\nmode: 1 w: 2 h: 3\n, a b c 4\nd e f 5\n")};
         },
         0, "  PYM  MODE  WIDTH  HEIGHT    HW-DROPS    SW-DROPS   ISP-DROPS\n",
         "cannot read all of an answer: parse_pym_stat failed!"},
        {"silence in the middle of the table", "fps",
         [](int, int sub, const std::string&) -> answer_packets {
             if (sub == 4)
                 return {};
             return {packet(sub, "cim0 a 1 b c d 30 e f g 30\n")};
         },
         1, "", "no answer from 127.0.0.1:"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        scripted_server server;
        server.answer(c.answers);
        const std::string endpoint = "127.0.0.1:" + std::to_string(server.port());
        child_process moncl({MONCL_PROGRAM, "--connect", endpoint, c.command});
        EXPECT_EQ(moncl.wait(), c.status);
        EXPECT_EQ(moncl.out, c.out);
        EXPECT_NE(moncl.err.find(c.complaint), std::string::npos) << moncl.err;
    }
}
