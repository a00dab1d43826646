// The video pipeline: texts and their broken forms, dispatch, answers of many parts, merged table.
#include "log_capture.h"
#include "manager_support.h"
#include "vio_info_manager.h"

#include <map>

namespace {
constexpr int command = 0xAE08;

// "NAME in=>out" of every record, by pipe.
std::map<int, std::string> shown(const fps_map& fps) {
    std::map<int, std::string> all;
    for (const auto& [key, pipe] : fps)
        all[pipe->pipe_id == key ? key : -1] = pipe->ip_name + " " +
                                               std::to_string(pipe->input_fps) + "=>" +
                                               std::to_string(pipe->output_fps);
    return all;
}

std::string rates(const std::string& name, int pipe, int input, int output) {
    return name + " pipe " + std::to_string(pipe) + " fps in : " + std::to_string(input) +
           " fps out : " + std::to_string(output) + "\n";
}

std::string isp_report(int index, const std::string& counts, const std::string& mode,
                       std::vector<int> numbers) {
    std::ostringstream out;
    out << "================isp_pipe" << index << "==================\nctx_count:\t" << counts[0]
        << "\nactive:   \t" << counts[1] << "\nunactive:\t" << counts[2] << "\npipe_id:\t"
        << numbers[0] << "\nframe_rate:\t" << numbers[1] << "\ns_Width:\t" << numbers[2]
        << "\ns_Height:\t" << numbers[3] << "\ndev_sched_mode:\t" << mode << "\n";
    return out.str();
}

std::string pym_report(int index, char mode, std::vector<int> numbers) {
    std::ostringstream out;
    out << "================S" << index << " info==================\npym mode:" << mode
        << "\tinput_width:" << numbers[0] << "\tinput_heigh:" << numbers[1]
        << "\nhw_drop_cnt:" << numbers[2] << "\tsw_drop_cnt:" << numbers[3]
        << "\tisp_drop_cnt:" << numbers[4] << "\n";
    return out.str();
}

const std::string nul(1, '\0');
const std::string nuls(3, '\0');
const std::string no_colon =
    "parse_pym_stat failed!basic_string::substr: __pos (which is 1) > this->size() (which is 0)\n";
const std::string pym_head = "== S0 ==\nmode: 2 width: 1920 height: 1080\n";
const std::string usecase = "isp_pipe usecase\na b c 1920 1080 30\n";
} // namespace

TEST(vio_info, sends_the_requests_of_each_query) {
    scripted_server server;
    auto connection = server.connect();
    vio_info_manager m(connection);
    cout_capture printed;
    std::ostringstream table;
    expect_requests(server, command,
                    {{[&] { return m.get_isp_info(); }, {1, 2}},
                     {[&] { return m.get_isp_fps(); }, {3, 4}},
                     {[&] { return m.get_cim_fps(); }, {5, 6}},
                     {[&] { return m.get_pym_fps(); }, {7, 8, 9}},
                     {[&] { return m.get_gdc_fps(); }, {10}},
                     {[&] { return m.get_pym_stat(); }, {11, 12, 13}},
                     {[&] { return m.get_vio_delay(); }, {14}},
                     {[&] { return m.sort_all_vio_fps(&table); }, {5, 6, 3, 4, 7, 8, 9}}});
    EXPECT_EQ(printed.take(), "parse_vio_delay\n");
    EXPECT_EQ(table.str(), "PIPE/IP       \n");

    log_capture log;
    EXPECT_EQ(m.sort_all_vio_fps(nullptr), -1);
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"6 MONCL_VIO: sort_all_vio_fps outstream null"});
    EXPECT_TRUE(server.take_requests().empty());
}

TEST(vio_info, reads_frame_rates_by_the_place_of_their_words) {
    using by_pipe = std::map<int, std::string>;
    const struct {
        std::string text;
        by_pipe wide; // lines of eleven words
        by_pipe gdc;  // lines of six
    } cases[] = {
        {"", {}, {}},
        {"a b 3 c d e 30 f g h 25\n", {{3, "a 30=>25"}}, {{3, "a 0=>0"}}},
        {"gdc0 pipe 3 a b 30", {{3, "gdc0 0=>0"}}, {{3, "gdc0 0=>30"}}},
        {" \ta  b\t7 1 2 9 30 4 5 6 25 too much", {{7, "a 30=>25"}}, {{7, "a 0=>9"}}},
        // The first line of a pipe counts; an empty one is of pipe 0.
        {"a b 1 c d e 1 f g h 2\n\nb b 1 c d 8 3 f g h 4\nc b 0",
         {{0, " 0=>0"}, {1, "a 1=>2"}},
         {{0, " 0=>0"}, {1, "a 0=>0"}}},
        {"a", {{0, "a 0=>0"}}, {{0, "a 0=>0"}}},
        {"a b x c d 5 6 f g h 7", {{0, "a 0=>0"}}, {{0, "a 0=>0"}}},
        {"a b 65535 c d 65536 65536 f g h 7", {{65535, "a 65535=>0"}}, {{65535, "a 0=>65535"}}},
        {"a b 65536 c d 5 6 f g h 7", {{65535, "a 0=>0"}}, {{65535, "a 0=>0"}}},
        {"a b -1 c d 5 x f g h 7", {{65535, "a 0=>0"}}, {{65535, "a 0=>5"}}},
        {"a b 1 c d e 30 f g h", {{1, "a 30=>0"}}, {{1, "a 0=>0"}}},
    };
    for (const auto& c : cases) {
        payload_area payload(c.text);
        isp_parser isp;
        pym_parser pym;
        cim_parser cim;
        gdc_parser gdc;
        EXPECT_TRUE(isp.parse_isp_fps(payload.data()) && pym.parse_pym_fps(payload.data()) &&
                    cim.parse_cim_fps(payload.data()) && gdc.parse_gdc_fps(payload.data()));
        EXPECT_EQ(shown(isp.fps), c.wide) << c.text;
        EXPECT_EQ(shown(pym.fps), c.wide) << c.text;
        EXPECT_EQ(shown(cim.fps), c.wide) << c.text;
        EXPECT_EQ(shown(gdc.fps), c.gdc) << c.text;
    }
}

TEST(vio_info, reads_the_use_cases_of_the_image_signal_processor) {
    const struct {
        std::string text;
        std::string report;
    } cases[] = {
        {"", ""},
        {"fw_ctx_count x\n4 2 2\ndev_sched_mode\n\tauto mode\nisp_pipe pipeline_id\nid: 1\n" +
             usecase,
         isp_report(0, "422", "auto", {1, 30, 1920, 1080})},
        // What was read holds for the next use case; counts are characters.
        {"fw_ctx_count\n12 3\n" + usecase + "isp_pipe pipeline_id\nid 4\nisp_pipe usecase\na b c 9",
         isp_report(0, "123", "", {0, 30, 1920, 1080}) +
             isp_report(1, "123", "", {4, 30, 9, 1080})},
        {"isp_pipe usecase", isp_report(0, nuls, "", {0, 0, 0, 0})},
        {usecase + "fw_ctx_count", isp_report(0, nuls, "", {0, 30, 1920, 1080})},
        {"fw_ctx_count\n4\n" + usecase, isp_report(0, "4" + nuls, "", {0, 30, 1920, 1080})},
        // The line behind a keyword is not looked at for keywords.
        {"dev_sched_mode\nisp_pipe usecase\na b c 1 2 3\n" + usecase,
         isp_report(0, nuls, "isp_pipe", {0, 30, 1920, 1080})},
        {"dev_sched_mode\n\nisp_pipe pipeline_id\n\n" + usecase,
         isp_report(0, nuls, "", {0, 30, 1920, 1080})},
        {"isp_pipe pipeline_id\nid x\nisp_pipe usecase\na b c 1 x 3",
         isp_report(0, nuls, "", {0, 0, 1, 0})},
        {"ISP_PIPE usecase\na b c 1 2 3\nisp_pipes usecase\nisp_pipe\nusecase\nisp_pipe other\n",
         ""},
    };
    for (const auto& c : cases) {
        cout_capture printed;
        isp_parser parser;
        EXPECT_TRUE(parser.parse_isp_info(payload_area(c.text).data()));
        EXPECT_EQ(printed.take(), c.report) << c.text;
    }
}

TEST(vio_info, reads_the_statistics_of_the_pyramid_scaler) {
    const std::string first = pym_head + "hw_drop_cnt: 7, isp drop cnt: 2\nsw drop cnt: 3\n";
    const std::string report = pym_report(0, '2', {1920, 1080, 0, 3, 2});
    const struct {
        std::string text;
        std::string report;
        bool good = true;
    } cases[] = {
        {"no header\n", ""},
        {first, report},
        // Only a field that begins with its count has one.
        {pym_head + " 7 hw: 8, a b c 2\na b c 3\n" + first,
         pym_report(0, '2', {1920, 1080, 7, 3, 2}) + pym_report(1, '2', {1920, 1080, 0, 3, 2})},
        {"=\n\n1", pym_report(0, '\0', {0, 0, 1, 0, 0})},
        // The field reaches over line ends to the next comma, or to the end.
        {pym_head + "hw: 7\n" + first, report},
        {pym_head + "x", pym_report(0, '2', {1920, 1080, 0, 0, 0})},
        {"=\nmode: 12 width: x height: 5\na: 1,b c d e\n", pym_report(0, '1', {0, 0, 0, 0, 0})},
        {first + pym_head + ",a b c 2\n", no_colon + report, false},
        {first + "=", no_colon + report, false},
        {pym_head + "hw:,",
         "parse_pym_stat failed!basic_string::substr: __pos (which is 4) > this->size() (which is "
         "3)\n",
         false},
    };
    for (const auto& c : cases) {
        cout_capture printed;
        pym_parser parser;
        EXPECT_EQ(parser.parse_pym_stat(payload_area(c.text).data()), c.good);
        EXPECT_EQ(printed.take(), c.report) << c.text;
    }
}

TEST(vio_info, reads_random_texts_within_their_bounds) {
    const auto pieces =
        split("isp_pipe|usecase|pipeline_id|fw_ctx_count|dev_sched_mode|\n|\n| | |=|"
              ",|:|12 34|65536|x|" +
              nul);
    std::mt19937 random(8);
    payload_area payload;
    cout_capture printed;
    for (int i = 0; i < 1000; ++i) {
        payload.randomize(random, pieces);
        isp_parser isp;
        pym_parser pym;
        gdc_parser gdc;
        ASSERT_TRUE(isp.parse_isp_fps(payload.data()) && gdc.parse_gdc_fps(payload.data()));
        ASSERT_TRUE(isp.parse_isp_info(payload.data()));
        printed.take();
        const bool good = pym.parse_pym_stat(payload.data());
        ASSERT_EQ(good, printed.take().find("parse_pym_stat failed!") == std::string::npos);
    }
    EXPECT_THROW(isp_parser().parse_isp_info(nullptr), std::logic_error);
    EXPECT_THROW(pym_parser().parse_pym_stat(nullptr), std::logic_error);
    EXPECT_THROW(gdc_parser().parse_gdc_fps(nullptr), std::logic_error);
}

TEST(vio_info, dispatches_by_the_sub_command_of_the_answer) {
    offline<vio_info_manager> m;
    auto handle = [&m](auto parser, int sub_command) {
        data_struct* answer = m.client->get_recv_data();
        answer->sub_command = sub_command;
        return m.handle_request(parser);
    };
    cout_capture printed;
    log_capture log;
    for (int sub : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 20}) {
        auto result = [sub](int first, int last) { return sub >= first && sub <= last ? 0 : -1; };
        EXPECT_EQ(handle(m.isp_parse, sub), result(1, 4)) << sub;
        EXPECT_EQ(handle(m.cim_parse, sub), result(5, 6)) << sub;
        EXPECT_EQ(handle(m.pym_parse, sub), sub == 10 ? -1 : result(7, 13)) << sub;
        EXPECT_EQ(handle(m.gdc_parse, sub), result(10, 10)) << sub;
        EXPECT_EQ(handle(m.vio_parser, sub), result(14, 14)) << sub;
    }
    EXPECT_EQ(log.lines().size(), 18U * 5 - 14);

    scripted_server server;
    auto connection = server.connect();
    m.client = connection;
    // Frame rates in answer to a query for information, then nothing that belongs here.
    server.next_text(3, rates("isp", 2, 30, 25));
    server.next_text(20, usecase);
    log_capture error;
    EXPECT_EQ(m.get_isp_info(), -1);
    EXPECT_EQ(shown(m.isp_parse->fps), (std::map<int, std::string>{{2, "isp 30=>25"}}));
    EXPECT_TRUE(m.isp_parse->info.empty());
    EXPECT_EQ(error.lines(),
              (std::vector<std::string>{"6 MONCL_VIO: Isp sub_command error with 20",
                                        "6 MONCL_VIO: Handle request error with -1"}));
}

TEST(vio_info, empties_what_it_fills_reports_after_each_answer_and_stops_at_a_failure) {
    scripted_server server;
    auto connection = server.connect();
    vio_info_manager m(connection);
    m.isp_parse->info.push_back(std::make_shared<isp_info>());
    m.pym_parse->stat.push_back(std::make_shared<pym_stat>());
    m.gdc_parse->fps[1] = std::make_shared<pipe_fps>();
    cout_capture printed;
    server.next_text(1, usecase);
    server.next_text(2, "fw_ctx_count\n1 2 3\n" + usecase);
    EXPECT_EQ(m.get_isp_info(), 0);
    const std::string first = isp_report(0, nuls, "", {0, 30, 1920, 1080});
    EXPECT_EQ(printed.take(), first + first + isp_report(1, "123", "", {0, 30, 1920, 1080}));

    server.take_requests();
    server.next_text(11, pym_head + "a: 1,b c d 2\n");
    server.next({error_packet(12, -5)});
    EXPECT_EQ(m.get_pym_stat(), -5);
    EXPECT_EQ(server.take_requests().size(), 2U);
    EXPECT_EQ(printed.take(), pym_report(0, '2', {1920, 1080, 0, 0, 2}));
    EXPECT_EQ(m.pym_parse->stat.size(), 1U);
    EXPECT_EQ(m.get_gdc_fps(), 0);
    EXPECT_TRUE(m.gdc_parse->fps.empty());
}

TEST(vio_info, takes_an_answer_of_many_parts_whole_or_ends_it_in_an_error) {
    const std::string blank(answer_payload_max, '\n');
    // One use case lies across two parts, one in the last.
    const std::string split_text = blank.substr(20) + usecase + blank + usecase;
    const std::string pyramid = pym_head + "a: 1,b c d 2\n";
    const std::string longest = usecase + std::string(50 * 8192 - usecase.size(), 'x');
    const struct {
        int sub_command;
        std::string text;
        int msg_len;
        bool whole;
        int result;
        std::size_t records;
    } cases[] = {
        {1, split_text, 8193, false, -1, 0},   {1, split_text, 8193, true, 0, 2},
        {1, split_text, 8192, true, -2, 1}, // the next request finds parts left
        {1, usecase, 8192, false, 0, 1},       {1, usecase, 8193, false, -1, 0},
        {11, pyramid, 8192, false, 0, 1},      {11, pyramid, 8193, false, -1, 0},
        {11, pyramid, 8193, true, 0, 1},       {1, longest, 1 << 30, true, 0, 1},
        {1, longest + "x", 8193, true, -1, 0},
    };
    for (const auto& c : cases) {
        answer_packets parts;
        for (std::size_t at = 0; at < c.text.size(); at += answer_payload_max) {
            packet_options how;
            how.msg_len = at == 0 ? c.msg_len : -1;
            parts.push_back(packet(c.sub_command, c.text.substr(at, answer_payload_max), how));
        }
        scripted_server server;
        auto connection = server.connect(c.whole);
        vio_info_manager m(connection);
        cout_capture printed;
        log_capture log;
        server.next(parts);
        EXPECT_EQ(c.sub_command == 1 ? m.get_isp_info() : m.get_pym_stat(), c.result);
        EXPECT_EQ(m.isp_parse->info.size() + m.pym_parse->stat.size(), c.records);
        EXPECT_EQ(log.has("6 MONCL_VIO: Receive more message error with -1"), c.result == -1);
        EXPECT_EQ(log.has("6 MONCL_VIO: Handle request error with -1"), c.result == -1);
        if (c.msg_len > answer_payload_max) {
            const auto* joined = reinterpret_cast<char*>(m.joined_parts.data());
            EXPECT_EQ(std::string(joined), c.text.substr(0, longest.size()));
        } else {
            EXPECT_TRUE(m.joined_parts.empty());
        }
        close_at_once(*connection);
    }
}

TEST(vio_info, merges_frame_rates_into_one_table) {
    const struct {
        std::string cim, isp, pym;
        std::string table;
    } cases[] = {
        {"", rates("isp0(x)", 1, 2, 3), rates("pym0", 4, 5, 6),
         "PIPE/IP       isp0          pym0          \n"},
        {rates("cim0", 1, 30, 29), rates("isp0", 7, 1, 1), "",
         "PIPE/IP       cim0          isp0          \n"
         "pipe1         30=>29        x             \n"},
        // Rows ascend; the ISP's name is cut for its column and found again in the full one.
        {rates("cim0", 3, 30, 29) + rates("cim0", 1, 5, 4), rates("isp0(fw)", 1, 28, 27),
         rates("pym0", 3, 26, 25),
         "PIPE/IP       cim0          isp0          pym0          \n"
         "pipe1         5 =>4         28=>27        x             \n"
         "pipe3         30=>29        x             26=>25        \n"},
        // The ISP comes first wherever its full name holds a column's.
        {rates("cim0", 1, 30, 29), rates("isp(cim0)", 1, 28, 27), rates("cim", 1, 26, 25),
         "PIPE/IP       cim0          isp           cim           \n"
         "pipe1         28=>27        28=>27        28=>27        \n"},
        // Wide figures push the row to the right; an empty name is found in every other.
        {rates("a-name-of-the-camera", 65535, 65535, 65535), "\n", rates("p", 65535, 100, 1),
         "PIPE/IP       a-name-of-the-camera              p             \n"
         "pipe65535     65535=>65535     x             100=>1         \n"},
        // What came before a failure is merged.
        {rates("cim0", 1, 30, 29), "fail", rates("pym0", 1, 3, 2),
         "PIPE/IP       cim0          pym0          \n"
         "pipe1         30=>29        3 =>2         \n"},
        {rates("c", 0, 1, 2), "\n", rates("c", 0, 3, 4),
         "PIPE/IP       c                           \n"
         "pipe0         1 =>2         0 =>0         \n"},
    };
    for (const auto& c : cases) {
        scripted_server server;
        server.answer([&c](int, int sub_command, const std::string&) -> answer_packets {
            const std::string& text = sub_command <= 4 ? c.isp : sub_command <= 6 ? c.cim : c.pym;
            if (text == "fail")
                return {error_packet(sub_command, -19)};
            return {packet(sub_command, sub_command % 2 == 0 ? text : "")};
        });
        auto connection = server.connect();
        vio_info_manager manager(connection);
        std::ostringstream out;
        EXPECT_EQ(manager.sort_all_vio_fps(&out),
                  std::count(c.table.begin(), c.table.end(), '\n') - 1);
        EXPECT_EQ(out.str(), c.table);
    }
}
