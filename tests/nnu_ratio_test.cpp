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
        return line_of(parser.nnu_rat);
    };
    expect_each(load, {{"a figure", "37.5\n", "37.5 "},
                       {"nothing keeps the load before", "", "37.5 "},
                       {"so do lines without anything", " \n\n", "37.5 "},
                       {"the last line counts", "1\n2.25 %\n", "2.25 "},
                       {"no figure is 0", "4\nidle", "0 "},
                       {"below zero", "x\n-.5", "-0.5 "},
                       {"an exponent", "1e2", "100 "},
                       {"a hexadecimal one is read up to its x", "0x1p3", "0 "}});
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
