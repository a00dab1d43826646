// Codecs, formatting, time differences and the cache of open files.
#include "child_process.h"
#include "manager_support.h"

TEST(common_func, codecs_and_time_differences) {
    unsigned char bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(u8_to_u32(bytes), 0x04030201U);
    EXPECT_EQ(u8_to_u64(bytes), 0x0102030405060708UL);
    u64_to_u8(0xF102030405060708UL, bytes);
    EXPECT_EQ(u8_to_u64(bytes), 0xF102030405060708UL);
    u32_to_u8(0xF4030201U, bytes);
    EXPECT_EQ(u8_to_u32(bytes), 0xF4030201U);
    EXPECT_EQ(line_of(+reverse8(0x2F), reverse32(0xF00D)), line_of(0xF4, 0xB00F0000));
    EXPECT_EQ(crc32(bytes, 8, crc_32) + crc32(nullptr, -1, crc_32_MPEG2), 0U);
    timeval start{10, 999999};
    timeval end{11, 0};
    EXPECT_EQ(line_of(time_diff(start, end), time_diff_us(start, end), time_diff(end, start)),
              line_of(1, 1, ~0UL));
    EXPECT_EQ(ms_to_ujiffies(1009), 100U);
}

TEST(common_func, sizes_have_one_decimal_and_a_unit) {
    std::ostringstream out;
    out << std::left << std::setfill('.');
    for (unsigned long size : {0UL, 1075UL, 1076UL, 1048575UL, 1048576UL, ~0UL})
        show_by_unit(size, out << std::setw(8), 0);
    for (int unit : {8, 255})
        show_by_unit(~0UL, out << std::setw(8), static_cast<unsigned char>(unit));
    EXPECT_EQ(out.str(), "0.0B....1.0K....1.1K....1024.0K.1.0M....16.0E...16.0Y...16.0Y...");
}

TEST(file_cache, reads_from_the_start_again_and_keeps_301_descriptors) {
    const file_tree tree;
    for (int i = 0; i < 302; ++i)
        tree.write("/" + std::to_string(i), i == 0 ? "12345678" : "x");
    unsigned char text[9] = "????????";
    auto read = [&](int i, int room) {
        return file_cache::read_file(tree.root() + "/" + std::to_string(i), text, room, true);
    };
    EXPECT_EQ(read(0, 5) * 1000 + text[4] * 100 + text[5], 4000 + '?');
    tree.write("/0", "87");
    EXPECT_EQ(line_of(read(0, 9), read(0, 0), read(999, 9), text[1]), "2 -1 -2 7 ");
    for (int i = 1; i < 302; ++i)
        EXPECT_EQ(read(i, 9), 1);
    EXPECT_EQ(file_cache::file_fds_cache.size(), 301U);
    file_cache::empty_cache_file();
}
