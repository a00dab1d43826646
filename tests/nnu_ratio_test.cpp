// Accelerator load: requests, texts, reports.
#include "manager_support.h"
#include "nnu_ratio_manager.h"

TEST(nnu_ratio, is_the_last_line_that_holds_anything) {
    struct comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new comma));
    nnu_ratio_parser parser;
    auto load = [&parser](const std::string& text) {
        EXPECT_EQ(parser.parse_nnu_ratio(payload_area(text)), 1);
        return line_of(static_cast<int>(parser.nnu_rat * 4));
    };
    expect_each(load, {"37.5\n => 150 ", " => 150 ", " \n\n => 150 ", "1\n2.25 %\n => 9 ",
                       "4\nidle => 0 ", "x\n-.5 => -2 ", "1e2 => 400 ", "0x1p3 => 0 "});
    EXPECT_EQ(parser.parse_nnu_ratio(payload_area("1e99")), 1);
    EXPECT_EQ(parser.nnu_rat, std::numeric_limits<float>::max());
    std::locale::global(before);
}

TEST(nnu_ratio, queries_report_a_line_for_a_core) {
    served<nnu_ratio_manager> with;
    std::ostringstream out;
    out << std::right << std::fixed << std::setprecision(2);
    for (const char* load : {"100", "5", "12.3456789"})
        with.server.next_text(1, load);
    EXPECT_EQ(with.sent(with.m.get_nnu_ratio_all(&out)), "AE03:1");
    EXPECT_EQ(with.sent(with.m.get_nnu0_ratio(&out)), "AE03:1");
    EXPECT_EQ(with.sent(with.m.get_nnu1_ratio(&out)), "AE03:2");
    with.server.next({error_packet(1, -19)});
    EXPECT_EQ(with.m.get_nnu_ratio_all(&out), -19);
    EXPECT_EQ(out.str(), "NNU   Usage\nnnu0  100%\nnnu0  5  %\nnnu1  12.3457%\nNNU   Usage\n");
}
