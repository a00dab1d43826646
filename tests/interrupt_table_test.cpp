// The interrupt table as the server sends it: in the form that clients decode, and cut to a size.
#include "client.h"
#include "interrupt_table.h"
#include "manager_support.h"

namespace {
constexpr std::size_t no_limit = 1 << 20;

const std::string header = "           CPU0       CPU1       \n";
const std::string idle = "          0          0    gic 33 Edge     idle\n";

// The rows that the library decodes, each as "NUMBER COUNT...".
std::string decoded(const std::string& table) {
    interrupt_parser parser;
    parser.interrupts = std::make_unique<std::vector<std::shared_ptr<interrupt>>>();
    EXPECT_EQ(parser.parse_int(table), 1);
    std::ostringstream rows;
    for (const auto& row : *parser.interrupts) {
        rows << row->IPI_int_num << row->logic_int_num;
        for (const std::uint64_t count : row->int_cnt)
            rows << " " << count;
        rows << "; ";
    }
    return rows.str();
}
} // namespace

TEST(interrupt_table, takes_the_form_that_clients_decode) {
    struct {
        const char* name;
        std::string kernel;
        std::string sent;
    } const cases[] = {
        {"a board's table stays as it is",
         header + "  7:          1          2    gic 27 Level    a\n"
                  "IPI0:         3          4       Rescheduling\nErr:          0\n",
         header + "  7:          1          2    gic 27 Level    a\n"
                  "IPI0:         3          4       Rescheduling\nErr:          0\n"},
        {"numbers in five columns",
         "  " + header +
             "    7:          1          2    gic 27 Level    a\n"
             " 1024:          5          6    gic 28 Edge     b\n"
             " IPI0:          3          4       Rescheduling\n  Err:          0\n",
         "  " + header +
             "  7:          1          2    gic 27 Level    a\n"
             "1024:          5          6    gic 28 Edge     b\n"
             "IPI0:          3          4       Rescheduling\nErr:          0\n"},
        {"a count glued to its label", header + "IPI0:4294967295 4294967294       Rescheduling\n",
         header + "IPI0: 4294967295 4294967294       Rescheduling\n"},
        {"CPU 1 and 2 are off line",
         "           CPU0       CPU3       \n  7:          1 4294967295    gic 27 Edge     a\n"
         "IPI0:         3          4       Rescheduling\nErr:          9\n",
         "           CPU0       CPU1       CPU2       CPU3       \n"
         "  7:          1          0          0 4294967295    gic 27 Edge     a\n"
         "IPI0:          3          0          0          4       Rescheduling\n"
         "Err:          9\n"},
        {"a label that would pass for a number, and no row at all",
         header + "CP0:          1          2\n\nxx1\n",
         header + "   CP0:          1          2\n"},
        {"CPUs out of order are taken as they come", "CPU5 CPU2\n  7: 1 2 gic\n",
         "CPU5 CPU2\n  7: 1 2 gic\n"},
        {"a CPU number no kernel has", "CPU0 CPU99999999999999999999\n  7: 1 2 gic\n",
         "CPU0 CPU99999999999999999999\n  7: 1 2 gic\n"},
        {"nothing", "", ""}};
    for (const auto& each : cases)
        EXPECT_EQ(monsrv::fit_interrupt_table(each.kernel, no_limit).text, each.sent) << each.name;
}

TEST(interrupt_table, leaves_out_rows_that_never_fired_first) {
    const std::string table = header + "  1:" + idle +
                              "  2:          0          5    gic 34 Edge b\n" + "  3:" + idle +
                              "  4:          7          8    gic 35 Edge c\n" +
                              "IPI0:          0          0       Rescheduling\nErr:          0\n";
    struct {
        std::size_t size_max;
        std::string rows;
        std::size_t left_out, left_out_idle;
    } const cases[] = {
        {table.size(), "1 0 0; 2 0 5; 3 0 0; 4 7 8; IPI0:0 0 0; 0; ", 0, 0},
        {table.size() - 1, "1 0 0; 2 0 5; 3 0 0; 4 7 8; IPI0:0 0 0; 0; ", 0, 0}, // without blanks
        {168, "1 0 0; 2 0 5; 3 0 0; 4 7 8; 0; ", 1, 1},
        {135, "1 0 0; 2 0 5; 4 7 8; 0; ", 2, 2},
        {102, "2 0 5; 4 7 8; 0; ", 3, 3},
        {101, "4 7 8; 0; ", 4, 3},
        {1, "0; ", 5, 3}};
    for (const auto& each : cases) {
        const monsrv::fitted_table sent = monsrv::fit_interrupt_table(table, each.size_max);
        EXPECT_EQ(decoded(sent.text), each.rows) << each.size_max;
        EXPECT_EQ(sent.rows_left_out, each.left_out) << each.size_max;
        EXPECT_EQ(sent.idle_rows_left_out, each.left_out_idle) << each.size_max;
    }
}
