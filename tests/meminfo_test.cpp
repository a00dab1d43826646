// Memory figures: decoding, broken texts, the report.
#include "manager_support.h"
#include "peri_stat_manager.h"

TEST(meminfo, figures_by_key) {
    std::unordered_map<std::string, long> table;
    auto figures = [&table](const std::string& text) {
        try {
            meminfo_parser().parseMeminfo(text, table);
        } catch (const std::logic_error& failure) { // no number, or too large
            return std::string(failure.what());
        }
        return line_of(table["a"], table["b"], table.size());
    };
    expect_each(figures, {"a: 1\nb:\t\v-2 kB\na:+3:5\n d :0x12 => 3 -2 3 ", "a: 1\nb => stol",
                          "a: 9223372036854775808 => stol", "a:-1\n\n => stol"});
    EXPECT_EQ(meminfo_parser().parse_meminfo(nullptr), 0);
}

TEST(meminfo, report) {
    offline<peri_stat_manager> m;
    cout_capture out;
    const std::string line = "MemTotal: 3.8G, Available: 1.5G, Anon: 123.0K, File: 3.0M, Slab: "
                             "2.0K, Buffer/Cache: 1023.0K";
    EXPECT_EQ(report(m, m.mem_parser, 26,
                     "MemTotal: 3951104 kB\nMemAvailable: 1572864\nActive(anon): 100\n"
                     "Inactive(anon): 23\nActive(file): 2048\nInactive(file): 1024\n"
                     "Buffers: 1000\nCached: 23\nMemFree: 5\nSlab: 2 " +
                         std::string(8192, 'k')),
              line);
    EXPECT_EQ(m.mem_parser->mem.memfree, 5U);
    EXPECT_EQ(report(m, m.mem_parser, 26, "MemTotal: 1\n\nSlab: 3\n"), line);
    EXPECT_EQ(out.take(), "parse_meminfo failed:stol\n");
    EXPECT_EQ(report(m, m.mem_parser, 26, "").substr(0, 17), "MemTotal: 0.0K, A");
}
