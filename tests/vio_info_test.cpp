// The video pipeline: texts and their broken forms, dispatch, answers of many parts, merged table.
#include "manager_support.h"
#include "patterns.h"
#include "vio_info_manager.h"

#include <map>

namespace {
// "PIPE:NAME in=>out " of every record, by pipe.
std::string shown(const fps_map& fps) {
    std::ostringstream all;
    for (const auto& [key, pipe] : std::map(fps.begin(), fps.end()))
        all << (pipe->pipe_id == key ? key : -1) << ":" << pipe->ip_name << " " << pipe->input_fps
            << "=>" << pipe->output_fps << " ";
    return all.str();
}

// The values of a report without their labels, with 0 for a NUL.
std::string values(std::string report) {
    std::replace(report.begin(), report.end(), '\0', '0');
    report = with_replaced(report, "=[^\n]*\n|[a-zA-Z_ ]*:\t?", "");
    return with_replaced(report, "\\s+", " ");
}

const std::string pym = "== S0 ==\nmode: 2 width: 19 height: 10\n";
const std::string ask = "isp_pipe usecase\na b c ";
const std::string usecase = ask + "19 10 30\n";
} // namespace

TEST(vio_info, queries) {
    served<vio_info_manager> with;
    vio_info_manager& m = with.m;
    std::ostringstream table;
    m.gdc_parse->fps[1] = std::make_shared<pipe_fps>();
    EXPECT_EQ(with.sent(m.get_isp_info()), "AE08:1 AE08:2");
    EXPECT_EQ(with.sent(m.get_isp_fps()), "AE08:3 AE08:4");
    EXPECT_EQ(with.sent(m.get_cim_fps()), "AE08:5 AE08:6");
    EXPECT_EQ(with.sent(m.get_pym_fps()), "AE08:7 AE08:8 AE08:9");
    EXPECT_EQ(with.sent(m.get_gdc_fps()), "AE08:10");
    EXPECT_EQ(with.sent(m.get_pym_stat()), "AE08:11 AE08:12 AE08:13");
    EXPECT_TRUE(m.gdc_parse->fps.empty()) << "a query empties what it fills";
    EXPECT_EQ(with.sent(m.get_vio_delay()), "AE08:14");
    EXPECT_EQ(with.sent(m.sort_all_vio_fps(&table)),
              "AE08:5 AE08:6 AE08:3 AE08:4 AE08:7 AE08:8 AE08:9");
    EXPECT_EQ(with.sent(m.sort_all_vio_fps(nullptr)), "-1");
    EXPECT_EQ(with.printed.take() + table.str(), "parse_vio_delay\nPIPE/IP       \n");
    // All gathered so far is reported after each answer.
    const std::string report =
        "================isp_pipe0==================\nctx_count:\t1\nactive:   \t2\nunactive:\t3\n"
        "pipe_id:\t0\nframe_rate:\t30\ns_Width:\t19\ns_Height:\t10\ndev_sched_mode:\t\n";
    with.server.next_text(1, "fw_ctx_count\n1 2 3\n" + usecase);
    EXPECT_EQ(with.sent(m.get_isp_info()), "AE08:1 AE08:2");
    EXPECT_EQ(with.printed.take(), report + report);
    // A failure ends a query.
    with.server.next_text(11, pym + "a: 1,b c d 2\n");
    with.server.next({error_packet(12, -5)});
    EXPECT_EQ(with.sent(m.get_pym_stat()), "-5 AE08:11 AE08:12");
    EXPECT_EQ(with.printed.take(),
              "================S0 info==================\npym mode:2\tinput_width:"
              "19\tinput_heigh:10\nhw_drop_cnt:0\tsw_drop_cnt:0\tisp_drop_cnt:2\n");
    // The answer's number decides how it is decoded: as rates, then as nothing known.
    with.server.next_text(3, "isp p 2 fps in : 30 fps out : 25\n");
    with.server.next_text(20, usecase);
    with.log.take();
    EXPECT_EQ(m.get_isp_info(), -1);
    EXPECT_EQ(shown(m.isp_parse->fps), "2:isp 30=>25 ");
    EXPECT_EQ(with.log.take(), "6 MONCL_VIO: Isp sub_command error with 20\n"
                               "6 MONCL_VIO: Handle request error with -1\n");
}

TEST(vio_info, frame_rates_by_the_place_of_their_words) {
    auto decoded = [](const std::string& text) {
        offline<vio_info_manager> m;
        EXPECT_TRUE(m.isp_parse->parse_isp_fps(payload_area(text)));
        EXPECT_TRUE(m.pym_parse->parse_pym_fps(payload_area(text)));
        EXPECT_TRUE(m.cim_parse->parse_cim_fps(payload_area(text)));
        EXPECT_TRUE(m.gdc_parse->parse_gdc_fps(payload_area(text)));
        EXPECT_EQ(shown(m.isp_parse->fps), shown(m.pym_parse->fps));
        EXPECT_EQ(shown(m.isp_parse->fps), shown(m.cim_parse->fps));
        return shown(m.isp_parse->fps) + "| " + shown(m.gdc_parse->fps);
    };
    // Lines of eleven words, and of six for GDC.
    expect_each(
        decoded,
        {{"a board's line", "a b 3 c d e 30 f g h 25\n", "3:a 30=>25 | 3:a 0=>0 "},
         {"more blanks, more words", " \ta  b\t7 1 2 9 30 4 5 6 25 x", "7:a 30=>25 | 7:a 0=>9 "},
         {"the first line of a pipe counts; an empty line is pipe 0",
          "a b 1 c d 5 1 f g h 2\n\nb b 1 c d 8", "0: 0=>0 1:a 1=>2 | 0: 0=>0 1:a 0=>5 "},
         {"a pipe that is no number", "a b x c d 5 6 f g h 7", "0:a 0=>0 | 0:a 0=>0 "},
         {"a pipe too large", "a b 65536 c d 5", "65535:a 0=>0 | 65535:a 0=>0 "},
         {"a pipe below zero", "a b -1 c d 65536 x f g h 7", "65535:a 0=>0 | 65535:a 0=>65535 "},
         {"a line that ends early", "a b 1 c d e 30 f g h", "1:a 30=>0 | 1:a 0=>0 "}});
}

TEST(vio_info, use_cases_and_statistics) {
    cout_capture printed;
    auto isp = [&printed](const std::string& text) {
        EXPECT_TRUE(isp_parser().parse_isp_info(payload_area(text)));
        return values(printed.take());
    };
    // Counts as characters, pipe, rate, width, height, mode.
    const std::string id = "isp_pipe pipeline_id\nid";
    const std::string ctx = "fw_ctx_count x\n";
    expect_each(
        isp,
        {{"all of it", ctx + "4 2 2\ndev_sched_mode\n\tauto x\n" + id + ": 1\n" + usecase,
          "4 2 2 1 30 19 10 auto "},
         {"what was read holds for the next use case",
          ctx + "12 3\n" + usecase + id + " 4\n" + ask + "9", "1 2 3 0 30 19 10 1 2 3 4 30 9 10 "},
         {"a keyword at the end", "isp_pipe usecase", "0 0 0 0 0 0 0 "},
         {"one count of three", ctx + "4\n" + usecase + "fw_ctx_count", "4 0 0 0 30 19 10 "},
         {"the line after a keyword is no keyword", "dev_sched_mode\n" + ask + "1\n" + usecase,
          "0 0 0 0 30 19 10 isp_pipe "},
         {"words that are no numbers", id + " x\n" + ask + "1 x 3", "0 0 0 0 0 1 0 "},
         {"words that are no keywords",
          "ISP_PIPE usecase\na b c 1 2\nisp_pipes usecase\nisp_pipe\nusecase\n", ""}});
    auto scaler = [&printed](const std::string& text) {
        const bool good = pym_parser().parse_pym_stat(payload_area(text));
        const std::string report = printed.take();
        const std::string failed = "parse_pym_stat failed!basic_string::substr: __pos (which is ";
        EXPECT_EQ(report.find(failed) == 0, !good);
        return good ? values(report) : "failed " + values(report.substr(report.find('\n') + 1));
    };
    // Mode, width, height, drops by hardware, software and ISP. Only a field that begins with its
    // count has one, and it reaches over line ends to the next comma, or to the end.
    const std::string first = pym + "hw_drop_cnt: 7, isp drop cnt: 2\nsw drop cnt: 3\n";
    expect_each(scaler,
                {{"no header", "no header\n", ""},
                 {"a count in each field but the first", first, "2 19 10 0 3 2 "},
                 {"two scalers", pym + " 7 hw: 8, a b c 2\na b c 3\n" + pym + "x",
                  "2 19 10 7 3 2 2 19 10 0 0 0 "},
                 {"a header without figures", "=\n\n1", "0 0 0 1 0 0 "},
                 {"a scaler that the next cuts off", pym + "hw: 7\n" + first, "2 19 10 0 3 2 "},
                 {"words that are no numbers", "=\nmode: 12 width: x height: 5\na: 1,b c d e\n",
                  "1 0 0 0 0 0 "},
                 {"a field without a colon", first + pym + ",a b c 2\n", "failed 2 19 10 0 3 2 "},
                 {"a header at the end", first + "=", "failed 2 19 10 0 3 2 "},
                 {"no count at all", pym + "hw:,", "failed "}});
}

TEST(vio_info, takes_an_answer_of_many_parts_whole_or_ends_it_in_an_error) {
    // One use case lies across two parts, one in the last.
    const std::string blank(8192, '\n');
    const std::string text = blank.substr(20) + usecase + blank + usecase;
    for (const auto& [whole, count, result, records] :
         {std::tuple(false, 3U, -1, 0U), {true, 3U, 0, 2U}, {true, 51U, -1, 0U}}) {
        answer_packets parts(count, packet(1, "", 8193));
        for (std::size_t i = 0; i < 3; ++i)
            parts[i] = packet(1, text.substr(i * 8192, 8192), 8193);
        served<vio_info_manager> with(whole);
        with.server.next(parts);
        EXPECT_EQ(with.m.get_isp_info(), result);
        EXPECT_EQ(with.m.isp_parse->info.size(), records);
    }
}

TEST(vio_info, merges_frame_rates_into_one_table) {
    // The answers of CIM, ISP and PYM; the table.
    const std::vector<std::string> cases[] = {
        // Rows ascend; the ISP's name is cut for its column and found again in the full one.
        {"c p 3 f i : 3 f o : 2\nc p 1 f i : 5 f o : 4", "i(f) p 1 f i : 28 f o : 27",
         "p p 3 f i : 6 f o : 5",
         "c             i             p             \n"
         "pipe1         5 =>4         28=>27        x             \n"
         "pipe3         3 =>2         x             6 =>5         \n"},
        // The ISP comes first wherever its full name holds a column's.
        {"c0 p 1 f i : 30 f o : 29", "i(c0) p 1 f i : 28 f o : 27", "c p 1 f i : 26 f o : 25",
         "c0            i             c             \n"
         "pipe1         28=>27        28=>27        28=>27        \n"},
        // Wide numbers push the row to the right; an empty name is found in every other.
        {"a-name-of-the-camera p 1 f i : 65535 f o : 65535", "\n", "p p 1 f i : 100 f o : 1",
         "a-name-of-the-camera              p             \n"
         "pipe1         65535=>65535     x             100=>1         \n"},
        // What came before a failure is merged.
        {"c p 1 f i : 3 f o : 2", "fail", "", "c             \npipe1         3 =>2         \n"}};
    for (const auto& each : cases) {
        served<vio_info_manager> with;
        with.server.answer([&each](int, int sub, const std::string&) -> answer_packets {
            const std::string& text = each[sub <= 4 ? 1 : sub <= 6 ? 0 : 2];
            return {text == "fail" ? error_packet(sub, -19) : packet(sub, sub % 2 ? "" : text)};
        });
        std::ostringstream out;
        EXPECT_EQ(with.m.sort_all_vio_fps(&out),
                  std::count(each[3].begin(), each[3].end(), '\n') - 1);
        EXPECT_EQ(out.str(), "PIPE/IP       " + each[3]);
    }
}
