// Codecs, time differences and formatting.
#include "manager_support.h"

TEST(common_func, codecs_time_differences_and_units) {
    unsigned char bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(line_of(u8_to_u32(bytes), u8_to_u64(bytes)), line_of(0x04030201, 0x0102030405060708));
    EXPECT_EQ(line_of(+reverse8(0x2F), reverse32(0xF00D)), line_of(0xF4, 0xB00F0000));
    timeval start{10, 999999}, end{11, 0};
    EXPECT_EQ(line_of(time_diff(start, end), time_diff(end, start)), line_of(1, ~0UL));
    std::ostringstream out;
    for (unsigned long size : {0UL, 1075UL, 1076UL, 1048575UL, 1048576UL, ~0UL})
        show_by_unit(size, out << std::left << std::setfill('.') << std::setw(8), 0);
    show_by_unit(~0UL, out, 255);
    EXPECT_EQ(out.str(), "0.0B....1.0K....1.1K....1024.0K.1.0M....16.0E...16.0Y");
}
