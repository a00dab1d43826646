// The interrupt table: decoding it and printing it again.
#include "cpu_stat_manager.h"
#include "file_text.h"
#include "manager_support.h"

namespace {
const std::string one = "           CPU0\n";
const std::string two = "           CPU0       CPU1\n";

// A table as it is printed, which decodes like the kernel's.
std::string printed_table(int lines) {
    std::ostringstream out;
    out << two;
    for (int line = 1; line <= lines; ++line)
        out << std::setw(3) << line << ":" << std::setw(11) << line * 7919 << std::setw(11) << line
            << "      GICv3" << std::setw(5) << line + 16 << " Level     dev" << line << "\n";
    return out.str() + "Err:          7\n";
}
} // namespace

TEST(interrupts, are_printed_from_their_records) {
    const std::string eleven = " 11:          1        gic    2 Edge a\n";
    auto printed = [](const std::string& text) {
        interrupt_parser parser;
        cout_capture output;
        parser.parse_interrupt(payload_area(text));
        return output.take();
    };
    EXPECT_EQ(printed(fuzz_input("interrupts/unaligned")), test_data("reports/interrupts.txt"));
    const std::string failed = "parse_interrupt failed!stoul\n";
    expect_each(
        printed,
        {{"nothing", "", "    \n"},
         {"without an error line, the last record stands in", "CPU0\nIPI0: 5 a\nIPI1: 6 b\n",
          one + "IPI0:          5 a\nErr:          0\n"},
         {"an error line before others", "CPU0\nErr: 3\nIPI0: 5 a\nErr: 4\n",
          "    \n   \nIPI0:          5 a\nErr:          4\n"},
         {"interrupt 0", "CPU0\n  0:  7 gic 1 Edge t\n 11: 1 gic 2 Edge a",
          one + "             7\n" + eleven},
         {"a count that is no number", "CPU0 CPU1\n 12: x 5 gic\n",
          two + " 12:          0          0               0 \n"},
         {"a label that is no number", "CPU0\n 11: 1 gic 2 Edge a\nab1: 1\n",
          failed + one + eleven},
         {"columns of which the first alone is aligned",
          "CPU0 CPU1\n 12:          7 5 gic 2 Edge\n",
          two + " 12:          7          5        gic    2 Edge\n"},
         {"leading zeros", "CPU0\n 11:        001 gic 2 Edge a\n", one + eleven},
         {"a number too large", "CPU0\n999999999999999999999: 1 gic 2 Edge\n", failed + "    \n"}});
    std::cout << std::left;
    EXPECT_EQ(printed("CPU0\n 11:          1 gic 2 Edge a\n"),
              one + "11 :1          gic        2     Edge a\n");
    std::cout << std::right;
    cout_capture output; // a header that asks for more counts than there can be
    interrupt_parser parser;
    std::string wide = std::string(200000, 'C') + repeated("\nIPI", 1000);
    EXPECT_EQ(parser.parse_interrupt(reinterpret_cast<unsigned char*>(wide.data())), 0);
    EXPECT_EQ(output.take().substr(0, 39), "parse_interrupt failed!too many counts\n");
    EXPECT_THROW(parser.parse_interrupt(nullptr), std::logic_error);
}

TEST(interrupts, arrive_in_parts) {
    const std::string table = printed_table(999);
    answer_packets parts;
    for (std::size_t at = 0; at < table.size(); at += 8192)
        parts.push_back(packet(9, table.substr(at, 8192)));
    const std::string before = repeated("\nIPI", 50 * 2048);
    const std::string full = packet(9, std::string(8192, 'x'));
    const std::tuple<answer_packets, bool, int, std::string> cases[] = {
        {parts, true, 0, table},
        {{packet(9, ""), packet(9, "")}, true, 0, ""},
        {answer_packets(49, full), true, 0, "    \n"},
        {answer_packets(50, full), true, 0, "    \n"},
        {answer_packets(51, full), true, -1, ""},
        {parts, false, -1, ""}};
    for (const auto& [answer, whole, result, printed] : cases) {
        served<cpu_stat_manager> with(whole);
        with.m.joined_len = 50 * 8192; // of an answer before: must not show
        with.m.joined_parts.assign(before.begin(), before.end());
        with.server.next(answer);
        EXPECT_EQ(with.m.get_interrupt(&std::cerr), result);
        EXPECT_EQ(with.printed.take(), printed);
    }
}

TEST(interrupts, a_full_standard_output_throws_to_the_caller_and_leaves_the_lock_free) {
    struct full_at_once : std::streambuf {
    } at_once;
    struct full_at_flush : std::stringbuf { // as /dev/full is
        int sync() override { return -1; }
    } at_flush;
    const std::string table = printed_table(3);
    served<cpu_stat_manager> with(true);
    for (std::streambuf* full : std::initializer_list<std::streambuf*>{&at_once, &at_flush}) {
        with.server.next_text(9, table);
        with.server.next_text(9, table);
        std::streambuf* before = std::cout.rdbuf(full);
        std::cout.exceptions(std::ios::badbit);
        EXPECT_THROW(with.m.get_interrupt(nullptr), std::ios::failure);
        std::cout.exceptions(std::ios::goodbit);
        std::cout.rdbuf(before);
        EXPECT_EQ(with.m.get_interrupt(nullptr), 0);
        EXPECT_EQ(with.printed.take(), table);
    }
}
