// Memory figures: decoding, broken texts, the report.
#include "manager_support.h"
#include "peri_stat_manager.h"

TEST(meminfo, figures_by_key) {
    using figures = std::unordered_map<std::string, long>;
    const std::pair<const char*, figures> texts[] = {
        {"a: 1\nb:\t\v-2 kB\na:+3\nc:4:5\n d :0x12", {{"a", 3}, {"b", -2}, {"c", 4}, {" d ", 0}}},
        {"a:9223372036854775807\n: 08\nb", {}},
        {"a: 9223372036854775808", {}},
        {"a:-1\n\n", {}}};
    for (const auto& [text, expected] : texts) {
        figures found;
        try {
            meminfo_parser().parseMeminfo(text, found);
        } catch (const std::logic_error& failure) { // no number, or too large
            EXPECT_STREQ(failure.what(), "stol");
            found.clear();
        }
        EXPECT_EQ(found, expected) << text;
    }
    meminfo_parser parser;
    cout_capture out;
    const std::string text = "MemTotal: 1\nMemFree: 5\nSlab: 7 " + std::string(8192, 'k');
    EXPECT_EQ(parser.parse_meminfo(payload_area(text).data()), 1);
    EXPECT_EQ(std::tuple(parser.mem.slab, parser.mem.memfree), std::tuple(7U, 5U));
    EXPECT_EQ(parser.parse_meminfo(nullptr), 0);
    EXPECT_EQ(out.take(),
              "parse_meminfo failed:basic_string: construction from null is not valid\n");
}

TEST(meminfo, report) {
    offline<peri_stat_manager> m;
    cout_capture out;
    const std::string line = "MemTotal: 3.8G, Available: 1.5G, Anon: 123.0K, File: 3.0M, Slab: "
                             "2.0K, Buffer/Cache: 1023.0K";
    EXPECT_EQ(report(m, m.mem_parser, 26,
                     "MemTotal: 3951104 kB\nMemAvailable: 1572864\nActive(anon): 100\n"
                     "Inactive(anon): 23\nActive(file): 2048\nInactive(file): 1024\n"
                     "Buffers: 1000\nCached: 23\nSlab: 2"),
              line);
    EXPECT_EQ(report(m, m.mem_parser, 26, "MemTotal: 1\n\nSlab: 3\n"), line);
    EXPECT_EQ(out.take(), "parse_meminfo failed:stol\n");
    EXPECT_EQ(report(m, m.mem_parser, 26, "").substr(0, 17), "MemTotal: 0.0K, A");
}
