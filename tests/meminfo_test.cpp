// Memory figures: decoding, broken texts, the report.
#include "file_text.h"
#include "manager_support.h"
#include "peri_stat_manager.h"

TEST(meminfo, reports_and_keeps_its_figures_after_a_broken_text) {
    offline<peri_stat_manager> m;
    const std::string line = "MemTotal: 3.8G, Available: 1.5G, Anon: 123.0K, File: 3.0M, Slab: "
                             "2.0K, Buffer/Cache: 1023.0K";
    EXPECT_EQ(
        report(m, m.mem_parser, 26, fuzz_input("meminfo/every_unit") + std::string(8192, 'k')),
        line);
    EXPECT_EQ(m.mem_parser->mem.memfree, 5U);
    for (const char* broken : {"MemTotal: 1\n\n", "Slab", "Slab: x", "Slab: 9223372036854775808"})
        EXPECT_EQ(report(m, m.mem_parser, 26, broken), line) << broken;
    EXPECT_EQ(m.printed.take(), repeated("parse_meminfo failed:stol\n", 4));
    EXPECT_EQ(report(m, m.mem_parser, 26, "").substr(0, 17), "MemTotal: 0.0K, A");
}
