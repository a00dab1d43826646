// The interrupt table: decoding it and printing it again.
#include "cpu_stat_manager.h"
#include "manager_support.h"

namespace {
std::string heading(int cpus) {
    std::string text = "    ";
    for (int cpu = 0; cpu < cpus; ++cpu)
        text += "       CPU" + std::to_string(cpu);
    return text + "\n";
}

// A table as it is printed, which decodes like the kernel's.
std::string printed_table(int cpus, int lines) {
    std::ostringstream out;
    out << heading(cpus);
    for (int line = 1; line <= lines; ++line) {
        out << std::setw(3) << line << ":";
        for (int cpu = 0; cpu < cpus; ++cpu)
            out << std::setw(11) << (line * 7919 + cpu * 12345) % 100000;
        out << "      GICv3" << std::setw(5) << line + 16 << " Level     dev" << line << "\n";
    }
    return out.str() + "Err:          7\n";
}
} // namespace

TEST(interrupts, are_printed_from_their_records) {
    const std::string failed = "parse_interrupt failed!";
    const std::string eleven = " 11:          1        gic    2 Edge a\n";
    const struct {
        std::string text, printed;
        unsigned int result = 1;
    } cases[] = {
        {"           CPU0       CPU1\n"
         " 11:       1234          0     GICv3  27 Level     arch_timer\n"
         "1024:    5  18446744073709551615 ITS-MSI 524288 Edge      eth0-rx\n\nab\n"
         "  7:      1          2     GICv3  30 Level\n"
         " NMI:          9          9   Non-maskable interrupts\n"
         "IPI0:      5678         90       Rescheduling interrupts\nIPI1:      3\nErr:  12\n",
         heading(2) + " 11:       1234          0      GICv3   27 Level     arch_timer\n"
                      "1024:          518446744073709551615    ITS-MSI524288 Edge      eth0-rx\n"
                      "  7:          1          2      GICv3   30 Level\n"
                      "IPI0:       5678         90       Rescheduling interrupts\n"
                      "IPI1:          3          0\nErr:         12\n"},
        {"", "    \n"},
        {"  CPU0 CPU1\n", "    \n"},
        // Without an error line, the last record stands in.
        {"CPU0\nIPI0: 5 a\nIPI1: 6 b\n", heading(1) + "IPI0:          5 a\nErr:          0\n"},
        {"CPU0\nErr: 3\nIPI0: 5 a\nErr: 4\n", "    \n   \nIPI0:          5 a\nErr:          4\n"},
        {"CPU0\n  0:  7 gic 1 Edge t\n 11: 1 gic 2 Edge a",
         heading(1) + "             7\n" + eleven},
        {"CPU0 CPU1\n 12: x 5 gic\nErr: y\n",
         heading(2) + " 12:          0          0               0 \nErr:          0\n"},
        {"CPU0\n 11: 1 gic 2 Edge a\nab1: 1\n 12: 1\n", failed + "stoul\n" + heading(1) + eleven,
         0},
        {"CPU0\n999999999999999999999: 1 gic 2 Edge a\n", failed + "stoul\n    \n", 0},
        {printed_table(64, 50), printed_table(64, 50)},
    };
    for (const auto& c : cases) {
        interrupt_parser parser;
        std::vector<char> text(c.text.begin(), c.text.end());
        text.push_back('\0');
        cout_capture output;
        EXPECT_EQ(parser.parse_interrupt(reinterpret_cast<unsigned char*>(text.data())), c.result);
        EXPECT_EQ(output.take(), c.printed) << c.text;
    }
    cout_capture output;
    interrupt_parser parser;
    EXPECT_EQ(parser.parse_int(std::string(200000, 'C') + repeated("\nIPI", 1000)), 0);
    EXPECT_EQ(output.take().substr(0, 39), failed + "too many counts\n");
    EXPECT_EQ(parser.interrupts->size(), 2U);
}

TEST(interrupts, arrive_in_parts) {
    const std::string table = printed_table(64, 300);
    answer_packets parts;
    for (std::size_t at = 0; at < table.size(); at += 8192)
        parts.push_back(packet(9, table.substr(at, 8192)));
    const answer_packets full(50, packet(9, "CPU0\n" + std::string(8187, 'x')));
    answer_packets too_many = full;
    too_many.push_back(full[0]);
    const struct {
        answer_packets answer;
        bool whole;
        int result;
        std::string printed;
    } cases[] = {
        {parts, true, 0, table},     {{packet(9, ""), packet(9, "")}, true, 0, ""},
        {full, true, 0, "    \n"},   {too_many, true, -1, ""},
        {{parts[0]}, false, -1, ""}, {parts, false, -1, ""},
    };
    for (const auto& c : cases) {
        served<cpu_stat_manager> with(c.whole);
        std::ostringstream out;
        cout_capture output;
        log_capture log;
        with.server.next(c.answer);
        EXPECT_EQ(with.m.get_interrupt(&out), c.result);
        EXPECT_EQ(output.take() + out.str(), c.printed);
        EXPECT_EQ(log.take().find("6 MONCL_CPU: Receive message error with -1\n") !=
                      std::string::npos,
                  c.result == -1);
        if (!c.printed.empty()) { // nothing of a longer table shows through
            with.server.next_text(9, "CPU0\nIPI0: 5 a\nErr: 4\n");
            EXPECT_EQ(with.m.get_interrupt(nullptr), 0);
            EXPECT_EQ(output.take(), heading(1) + "IPI0:          5 a\nErr:          4\n");
        }
    }
}
