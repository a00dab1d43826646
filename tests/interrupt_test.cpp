// The interrupt table: decoding it and printing it again.
#include "cpu_stat_manager.h"

#include "log_capture.h"
#include "scripted_server.h"

#include <gtest/gtest.h>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace {
// Decodes and prints, as the manager does.
std::string print(interrupt_parser& parser, std::string text, unsigned int result = 1) {
    cout_capture output;
    EXPECT_EQ(parser.parse_interrupt(reinterpret_cast<unsigned char*>(text.data())), result);
    return output.take();
}

// A table of the kernel's layout.
std::string kernel_table(int cpus, int lines) {
    std::ostringstream out;
    out << "    ";
    for (int cpu = 0; cpu < cpus; ++cpu)
        out << "       CPU" << cpu;
    out << "\n";
    for (int line = 1; line <= lines; ++line) {
        out << std::setw(3) << line << ":";
        for (int cpu = 0; cpu < cpus; ++cpu)
            out << " " << std::setw(10) << (line * 7919 + cpu * 12345) % 100000;
        out << "     GICv3 " << std::setw(3) << line + 16 << " Level     dev" << line << "\n";
    }
    return out.str() + "Err:          0\n";
}

// The table as an output stream prints it, from the records.
std::string stream_table(const interrupt_parser& parser, bool left) {
    std::ostringstream out;
    out << "    ";
    for (std::size_t i = 0; i < parser.interrupts->front()->int_cnt.size(); ++i)
        out << std::right << std::setw(10) << "CPU" << i;
    out << std::endl << (left ? std::left : std::right);
    for (const auto& r : *parser.interrupts) {
        if (r->IPI_int_num.empty() && r->logic_int_num != 0) {
            out << std::setw(3) << r->logic_int_num << ":";
            for (auto count : r->int_cnt)
                out << std::setw(11) << count;
            out << std::setw(11) << r->int_dev << std::setw(5) << r->hardware_int_num << " "
                << r->trigger_mode << r->int_name;
        } else if (r == parser.interrupts->back()) {
            out << "Err:" << std::setw(11) << r->err_cnt;
        } else {
            out << std::setw(3) << r->IPI_int_num;
            for (auto count : r->int_cnt)
                out << std::setw(11) << count;
            out << r->IPI_int_describe;
        }
        out << std::endl;
    }
    return out.str();
}
} // namespace

TEST(interrupt_parser, decodes_every_kind_of_line) {
    const std::string arm = "           CPU0       CPU1\n"
                            " 11:       1234          0     GICv3  27 Level     arch_timer\n"
                            "1024:    5  18446744073709551615 ITS-MSI 524288 Edge      eth0-rx\n"
                            "\n"
                            "ab\n"
                            "  7:      1          2     GICv3  30 Level\n"
                            " NMI:          9          9   Non-maskable interrupts\n"
                            "IPI0:      5678         90       Rescheduling interrupts\n"
                            "IPI1:      3\n"
                            "Err:         12\n";
    interrupt_parser parser;
    EXPECT_EQ(print(parser, arm),
              "           CPU0       CPU1\n"
              " 11:       1234          0      GICv3   27 Level     arch_timer\n"
              "1024:          518446744073709551615    ITS-MSI524288 Edge      eth0-rx\n"
              "  7:          1          2      GICv3   30 Level\n"
              "IPI0:       5678         90       Rescheduling interrupts\n"
              "IPI1:          3          0\n"
              "Err:         12\n");
    const auto& records = *parser.interrupts;
    ASSERT_EQ(records.size(), 6U);
    EXPECT_EQ(records[0]->logic_int_num, 11U);
    EXPECT_EQ(records[0]->hardware_int_num, 27U);
    EXPECT_EQ(records[0]->trigger_mode, "Level");
    EXPECT_EQ(records[0]->int_name, "     arch_timer");
    EXPECT_EQ(records[1]->int_cnt, (std::vector<std::uint64_t>{5, ~0UL}));
    EXPECT_EQ(records[2]->int_name, "");
    EXPECT_EQ(records[3]->IPI_int_num, "IPI0:");
    EXPECT_EQ(records[3]->IPI_int_describe, "       Rescheduling interrupts");
    EXPECT_EQ(records[4]->int_cnt, (std::vector<std::uint64_t>{3, 0}));
    EXPECT_EQ(records[5]->err_cnt, 12U);
}

TEST(interrupt_parser, prints_odd_tables) {
    const struct {
        const char* name;
        std::string text;
        unsigned int result;
        const char* printed;
    } cases[] = {
        {"nothing", "", 1, "    \n"},
        {"a header alone", "  CPU0 CPU1\n", 1, "    \n"},
        {"no error line: the last record stands in", "CPU0\nIPI0: 5 a\nIPI1: 6 b\n", 1,
         "           CPU0\nIPI0:          5 a\nErr:          0\n"},
        {"an error line that is not last", "CPU0\nErr: 3\nIPI0: 5 a\nErr: 4\n", 1,
         "    \n   \nIPI0:          5 a\nErr:          4\n"},
        {"interrupt 0", "CPU0\n  0:  7 gic 1 Edge timer\n  1:  7 gic 1 Edge timer\n", 1,
         "           CPU0\n             7\n  1:          7        gic    1 Edge timer\n"},
        {"counts that are none", "CPU0 CPU1\n 12: x 5 gic\nErr: y\n", 1,
         "           CPU0       CPU1\n 12:          0          0               0 \nErr:          "
         "0\n"},
        {"no number", "CPU0\n 11: 1 gic 2 Edge a\nab1: 1 gic 2 Edge a\n 12: 1 gic 2 Edge a\n", 0,
         "parse_interrupt failed!stoul\n           CPU0\n 11:          1        gic    2 Edge a\n"},
        {"a number too large", "CPU0\n999999999999999999999: 1 gic 2 Edge a\n", 0,
         "parse_interrupt failed!stoul\n    \n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        interrupt_parser parser;
        EXPECT_EQ(print(parser, c.text, c.result), c.printed);
    }
}

TEST(interrupt_parser, prints_what_a_stream_would) {
    for (bool left : {false, true}) {
        for (int cpus : {1, 8, 64}) {
            interrupt_parser parser;
            std::cout << (left ? std::left : std::right);
            const std::string printed = print(parser, kernel_table(cpus, 40));
            EXPECT_EQ(printed, stream_table(parser, left));
        }
    }
    std::cout << std::right;
}

TEST(interrupt_parser, limits_what_a_header_can_ask_for) {
    std::string text(200000, 'C');
    text += "\n";
    for (int i = 0; i < 1000; ++i)
        text += "IPI\n";
    interrupt_parser parser;
    const std::string printed = print(parser, text, 0);
    EXPECT_EQ(printed.substr(0, 39), "parse_interrupt failed!too many counts\n");
    EXPECT_EQ(parser.interrupts->size(), 2U);
}

TEST(cpu_stat_manager, joins_the_parts_of_an_interrupt_table) {
    const std::string table = kernel_table(64, 300);
    answer_packets parts;
    for (std::size_t at = 0; at < table.size(); at += 8192)
        parts.push_back(packet(9, table.substr(at, 8192)));
    log_capture log;
    scripted_server server;
    std::ostringstream out;
    cout_capture output;
    {
        cpu_stat_manager manager(server.connect(true));
        server.next(parts);
        EXPECT_EQ(manager.get_interrupt(&out), 0);
        EXPECT_EQ(manager.int_parser->interrupts->size(), 301U);
        EXPECT_EQ(output.take(), stream_table(*manager.int_parser, false));
        server.next({packet(9, "CPU0\n 11: 1 gic 2 Edge a\n")}); // nothing of the longer one shows
        EXPECT_EQ(manager.get_interrupt(&out), 0);
        EXPECT_EQ(manager.int_parser->interrupts->size(), 1U);
        output.take();
        server.next({packet(9, ""), packet(9, "")});
        EXPECT_EQ(manager.get_interrupt(nullptr), 0);
        EXPECT_EQ(output.take() + out.str(), "") << "nothing but zeros prints nothing";
        answer_packets full(50, packet(9, "CPU0\n" + std::string(8187, 'x')));
        server.next(full);
        EXPECT_EQ(manager.get_interrupt(nullptr), 0);
        EXPECT_EQ(output.take(), "    \n");
        full.push_back(full.back());
        server.next(full);
        EXPECT_EQ(manager.get_interrupt(nullptr), -1);
        close_at_once(*manager.client);
    }
    log = log_capture();
    cpu_stat_manager manager(server.connect(false));
    server.next(parts);
    EXPECT_EQ(manager.get_interrupt(&out), -1);
    EXPECT_TRUE(log.has("6 MONCL_CPU: Receive message error with -1"));
    EXPECT_TRUE(log.has("6 MONCL_CPU: Handle request error with -1"));
    EXPECT_EQ(output.take() + out.str(), "");
    close_at_once(*manager.client);
}
