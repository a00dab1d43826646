// The video pipeline: texts and their broken forms, dispatch, answers of many parts, merged table.
#include "manager_support.h"
#include "vio_info_manager.h"

#include <map>

namespace {
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
    return name + " p " + std::to_string(pipe) + " fps in : " + std::to_string(input) +
           " fps out : " + std::to_string(output) + "\n";
}

// @p pattern with its # filled in from @p values, which blanks separate.
std::string filled(const std::string& pattern, const std::string& values) {
    std::istringstream words(values);
    std::string text, word;
    for (char c : pattern)
        if (c != '#')
            text += c;
        else if (words >> word)
            text += word == "NUL" ? std::string(1, '\0') : word;
    return text;
}

// Index, three counts, pipe, rate, width, height, mode.
std::string isp_report(const std::string& values) {
    return filled("================isp_pipe#==================\nctx_count:\t#\nactive:   \t#\n"
                  "unactive:\t#\npipe_id:\t#\nframe_rate:\t#\ns_Width:\t#\ns_Height:\t#\n"
                  "dev_sched_mode:\t#\n",
                  values);
}

// Index, mode, width, height, drops by hardware, software and ISP.
std::string pym_report(const std::string& values) {
    return filled("================S# info==================\npym mode:#\tinput_width:#\t"
                  "input_heigh:#\nhw_drop_cnt:#\tsw_drop_cnt:#\tisp_drop_cnt:#\n",
                  values);
}

const std::string failed = "parse_pym_stat failed!basic_string::substr: __pos (which is ";
const std::string pym_head = "== S0 ==\nmode: 2 width: 1920 height: 1080\n";
const std::string usecase = "isp_pipe usecase\na b c 1920 1080 30\n";
} // namespace

TEST(vio_info, requests) {
    served<vio_info_manager> with;
    vio_info_manager& m = with.m;
    cout_capture printed;
    std::ostringstream table;
    EXPECT_EQ(with.sent(m.get_isp_info()), "AE08:1 AE08:2");
    EXPECT_EQ(with.sent(m.get_isp_fps()), "AE08:3 AE08:4");
    EXPECT_EQ(with.sent(m.get_cim_fps()), "AE08:5 AE08:6");
    EXPECT_EQ(with.sent(m.get_pym_fps()), "AE08:7 AE08:8 AE08:9");
    EXPECT_EQ(with.sent(m.get_gdc_fps()), "AE08:10");
    EXPECT_EQ(with.sent(m.get_pym_stat()), "AE08:11 AE08:12 AE08:13");
    EXPECT_EQ(with.sent(m.get_vio_delay()), "AE08:14");
    EXPECT_EQ(with.sent(m.sort_all_vio_fps(&table)),
              "AE08:5 AE08:6 AE08:3 AE08:4 AE08:7 AE08:8 AE08:9");
    log_capture log;
    EXPECT_EQ(with.sent(m.sort_all_vio_fps(nullptr)), "-1");
    EXPECT_EQ(log.take(), "6 MONCL_VIO: sort_all_vio_fps outstream null");
    EXPECT_EQ(printed.take() + table.str(), "parse_vio_delay\nPIPE/IP       \n");
    // Frame rates in answer to a query for information, then nothing that belongs here.
    with.server.next_text(3, rates("isp", 2, 30, 25));
    with.server.next_text(20, usecase);
    EXPECT_EQ(m.get_isp_info(), -1);
    EXPECT_EQ(shown(m.isp_parse->fps), (std::map<int, std::string>{{2, "isp 30=>25"}}));
    EXPECT_TRUE(m.isp_parse->info.empty());
    EXPECT_EQ(log.take(), "6 MONCL_VIO: Isp sub_command error with 20\n"
                          "6 MONCL_VIO: Handle request error with -1\n");
}

TEST(vio_info, frame_rates_by_the_place_of_their_words) {
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
        {"a b x c d 5 6 f g h 7", {{0, "a 0=>0"}}, {{0, "a 0=>0"}}},
        {"a b 65535 c d 65536 65536 f g h 7", {{65535, "a 65535=>0"}}, {{65535, "a 0=>65535"}}},
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
        for (const fps_map* wide : {&isp.fps, &pym.fps, &cim.fps})
            EXPECT_EQ(shown(*wide), c.wide) << c.text;
        EXPECT_EQ(shown(gdc.fps), c.gdc) << c.text;
    }
    EXPECT_THROW(gdc_parser().parse_gdc_fps(nullptr), std::logic_error);
}

TEST(vio_info, use_cases_and_statistics) {
    const std::string plain = isp_report("0 NUL NUL NUL 0 30 1920 1080");
    const std::string first = pym_head + "hw_drop_cnt: 7, isp drop cnt: 2\nsw drop cnt: 3\n";
    const std::string report = pym_report("0 2 1920 1080 0 3 2");
    const struct {
        std::string text, report;
    } isp_cases[] =
        {
            {"", ""},
            {"fw_ctx_count x\n4 2 2\ndev_sched_mode\n\tauto mode\nisp_pipe pipeline_id\nid: 1\n" +
                 usecase,
             isp_report("0 4 2 2 1 30 1920 1080 auto")},
            // What was read holds for the next use case; counts are characters.
            {"fw_ctx_count\n12 3\n" + usecase +
                 "isp_pipe pipeline_id\nid 4\nisp_pipe usecase\na b c 9",
             isp_report("0 1 2 3 0 30 1920 1080") + isp_report("1 1 2 3 4 30 9 1080")},
            {"isp_pipe usecase", isp_report("0 NUL NUL NUL 0 0 0 0")},
            {usecase + "fw_ctx_count", plain},
            {"fw_ctx_count\n4\n" + usecase, isp_report("0 4 NUL NUL 0 30 1920 1080")},
            // The line behind a keyword is not looked at for keywords.
            {"dev_sched_mode\nisp_pipe usecase\na b c 1 2 3\n" + usecase,
             isp_report("0 NUL NUL NUL 0 30 1920 1080 isp_pipe")},
            {"dev_sched_mode\n\nisp_pipe pipeline_id\n\n" + usecase, plain},
            {"isp_pipe pipeline_id\nid x\nisp_pipe usecase\na b c 1 x 3",
             isp_report("0 NUL NUL NUL 0 0 1 0")},
            {"ISP_PIPE usecase\na b c 1 2 3\nisp_pipes usecase\nisp_pipe\nusecase\nisp_pipe x\n",
             ""},
        },
      pym_cases[] = {
          {"no header\n", ""},
          {first, report},
          // Only a field that begins with its count has one.
          {pym_head + " 7 hw: 8, a b c 2\na b c 3\n" + first,
           pym_report("0 2 1920 1080 7 3 2") + pym_report("1 2 1920 1080 0 3 2")},
          {"=\n\n1", pym_report("0 NUL 0 0 1 0 0")},
          // The field reaches over line ends to the next comma, or to the end.
          {pym_head + "hw: 7\n" + first, report},
          {pym_head + "x", pym_report("0 2 1920 1080 0 0 0")},
          {"=\nmode: 12 width: x height: 5\na: 1,b c d e\n", pym_report("0 1 0 0 0 0 0")},
          {first + pym_head + ",a b c 2\n", failed + "1) > this->size() (which is 0)\n" + report},
          {first + "=", failed + "1) > this->size() (which is 0)\n" + report},
          {pym_head + "hw:,", failed + "4) > this->size() (which is 3)\n"},
      };
    cout_capture printed;
    for (const auto& c : isp_cases) {
        EXPECT_TRUE(isp_parser().parse_isp_info(payload_area(c.text).data()));
        EXPECT_EQ(printed.take(), c.report) << c.text;
    }
    for (const auto& c : pym_cases) {
        EXPECT_EQ(pym_parser().parse_pym_stat(payload_area(c.text).data()),
                  c.report.find(failed) == std::string::npos);
        EXPECT_EQ(printed.take(), c.report) << c.text;
    }
    EXPECT_THROW(isp_parser().parse_isp_info(nullptr), std::logic_error);
    EXPECT_THROW(pym_parser().parse_pym_stat(nullptr), std::logic_error);
}

TEST(vio_info, dispatches_by_the_sub_command_of_the_answer) {
    offline<vio_info_manager> m;
    auto handle = [&m](auto parser, int sub_command) {
        m.client->get_recv_data()->sub_command = sub_command;
        return m.handle_request(parser);
    };
    cout_capture printed;
    for (int sub : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 20}) {
        auto result = [sub](int first, int last) { return sub >= first && sub <= last ? 0 : -1; };
        EXPECT_EQ(handle(m.isp_parse, sub), result(1, 4)) << sub;
        EXPECT_EQ(handle(m.cim_parse, sub), result(5, 6)) << sub;
        EXPECT_EQ(handle(m.pym_parse, sub), sub == 10 ? -1 : result(7, 13)) << sub;
        EXPECT_EQ(handle(m.gdc_parse, sub), result(10, 10)) << sub;
        EXPECT_EQ(handle(m.vio_parser, sub), result(14, 14)) << sub;
    }
}

TEST(vio_info, empties_what_it_fills_reports_after_each_answer_and_stops_at_a_failure) {
    served<vio_info_manager> with;
    vio_info_manager& m = with.m;
    m.isp_parse->info.push_back(std::make_shared<isp_info>());
    m.pym_parse->stat.push_back(std::make_shared<pym_stat>());
    m.gdc_parse->fps[1] = std::make_shared<pipe_fps>();
    cout_capture printed;
    with.server.next_text(1, usecase);
    with.server.next_text(2, "fw_ctx_count\n1 2 3\n" + usecase);
    EXPECT_EQ(m.get_isp_info(), 0);
    EXPECT_EQ(printed.take(), repeated(isp_report("0 NUL NUL NUL 0 30 1920 1080"), 2) +
                                  isp_report("1 1 2 3 0 30 1920 1080"));
    with.server.take_requests();
    with.server.next_text(11, pym_head + "a: 1,b c d 2\n");
    with.server.next({error_packet(12, -5)});
    EXPECT_EQ(with.sent(m.get_pym_stat()), "-5 AE08:11 AE08:12");
    EXPECT_EQ(printed.take(), pym_report("0 2 1920 1080 0 0 2"));
    EXPECT_EQ(m.get_gdc_fps(), 0);
    EXPECT_TRUE(m.gdc_parse->fps.empty());
}

TEST(vio_info, takes_an_answer_of_many_parts_whole_or_ends_it_in_an_error) {
    const std::string blank(answer_payload_max, '\n');
    // One use case lies across two parts, one in the last.
    const std::string cut = blank.substr(20) + usecase + blank + usecase;
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
        {1, cut, 8193, false, -1, 0},      {1, cut, 8193, true, 0, 2},
        {1, cut, 8192, true, -2, 1}, // the next request finds parts left
        {1, usecase, 8192, false, 0, 1},   {1, usecase, 8193, false, -1, 0},
        {11, pyramid, 8192, false, 0, 1},  {11, pyramid, 8193, true, 0, 1},
        {1, longest, 1 << 30, true, 0, 1}, {1, longest + "x", 8193, true, -1, 0},
    };
    for (const auto& c : cases) {
        answer_packets parts;
        for (std::size_t at = 0; at < c.text.size(); at += answer_payload_max)
            parts.push_back(
                packet(c.sub_command, c.text.substr(at, answer_payload_max), c.msg_len));
        served<vio_info_manager> with(c.whole);
        cout_capture printed;
        log_capture log;
        with.server.next(parts);
        EXPECT_EQ(c.sub_command == 1 ? with.m.get_isp_info() : with.m.get_pym_stat(), c.result);
        EXPECT_EQ(with.m.isp_parse->info.size() + with.m.pym_parse->stat.size(), c.records);
        EXPECT_EQ(log.take().find("Receive more message error with -1\n6 MONCL_VIO: Handle request "
                                  "error with -1\n") != std::string::npos,
                  c.result == -1);
        const std::string joined(with.m.joined_parts.begin(), with.m.joined_parts.end());
        EXPECT_EQ(joined.c_str(), c.msg_len > 8192 ? c.text.substr(0, longest.size()) : "");
    }
}

TEST(vio_info, merges_frame_rates_into_one_table) {
    const struct {
        std::string cim, isp, pym;
        std::string table;
    } cases[] = {
        {"", rates("isp0(x)", 1, 2, 3), rates("pym0", 4, 5, 6), "isp0          pym0          \n"},
        {rates("cim0", 1, 30, 29), rates("isp0", 7, 1, 1), "",
         "cim0          isp0          \npipe1         30=>29        x             \n"},
        // Rows ascend; the ISP's name is cut for its column and found again in the full one.
        {rates("cim0", 3, 30, 29) + rates("cim0", 1, 5, 4), rates("isp0(fw)", 1, 28, 27),
         rates("pym0", 3, 26, 25),
         "cim0          isp0          pym0          \n"
         "pipe1         5 =>4         28=>27        x             \n"
         "pipe3         30=>29        x             26=>25        \n"},
        // The ISP comes first wherever its full name holds a column's.
        {rates("cim0", 1, 30, 29), rates("isp(cim0)", 1, 28, 27), rates("cim", 1, 26, 25),
         "cim0          isp           cim           \n"
         "pipe1         28=>27        28=>27        28=>27        \n"},
        // Wide figures push the row to the right; an empty name is found in every other.
        {rates("a-name-of-the-camera", 65535, 65535, 65535), "\n", rates("p", 65535, 100, 1),
         "a-name-of-the-camera              p             \n"
         "pipe65535     65535=>65535     x             100=>1         \n"},
        // What came before a failure is merged.
        {rates("cim0", 1, 30, 29), "fail", rates("pym0", 1, 3, 2),
         "cim0          pym0          \npipe1         30=>29        3 =>2         \n"},
        {rates("c", 0, 1, 2), "\n", rates("c", 0, 3, 4),
         "c                           \npipe0         1 =>2         0 =>0         \n"},
    };
    for (const auto& c : cases) {
        served<vio_info_manager> with;
        with.server.answer([&c](int, int sub, const std::string&) -> answer_packets {
            const std::string& text = sub <= 4 ? c.isp : sub <= 6 ? c.cim : c.pym;
            return {text == "fail" ? error_packet(sub, -19)
                                   : packet(sub, sub % 2 == 0 ? text : "")};
        });
        std::ostringstream out;
        EXPECT_EQ(with.m.sort_all_vio_fps(&out),
                  std::count(c.table.begin(), c.table.end(), '\n') - 1);
        EXPECT_EQ(out.str(), "PIPE/IP       " + c.table);
    }
}
