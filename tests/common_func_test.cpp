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

TEST(show_by_unit, writes_one_decimal_and_a_unit) {
    auto shown = [](const std::string& words) {
        std::istringstream in(words);
        unsigned long value = 0;
        int unit = 0;
        in >> value >> unit;
        std::ostringstream out;
        out << std::left << std::setfill('.') << std::setw(8);
        show_by_unit(value, out, static_cast<unsigned char>(unit));
        return out.str();
    };
    const std::string most = "18446744073709551615 ";
    expect_each(shown, {{"0 0", "0.0B...."},
                        {"1023 1", "1023.0K."},
                        {"1048575 0", "1024.0K."},
                        {"1075 0", "1.0K...."},
                        {"1076 0", "1.1K...."},
                        {"1048576 0", "1.0M...."},
                        {most + "0", "16.0E..."},
                        {most + "8", "16.0Y..."},
                        {most + "255", "16.0Y..."}});
}

TEST(file_cache, reads_from_the_start_again_and_keeps_301_descriptors) {
    const file_tree tree;
    // What was read and the byte behind it, or the code.
    auto read = [&tree](const std::string& path, bool cache, int room) {
        unsigned char text[64] = "????????";
        const int n = file_cache::read_file(tree.root() + path, text, room, cache);
        return n < 0 ? std::to_string(n) : std::string(text, text + n + 1);
    };
    tree.write("/0", "12345678");
    EXPECT_EQ(read("/0", false, 64), std::string("12345678\0", 9));
    EXPECT_TRUE(file_cache::file_fds_cache.empty());
    EXPECT_EQ(read("/0", true, 5), std::string("1234\0", 5));
    const int fd = file_cache::open_and_cache(tree.root() + "/0");
    tree.write("/0", "87");
    EXPECT_EQ(read("/0", true, 64), std::string("87\0", 3));
    EXPECT_EQ(file_cache::open_and_cache(tree.root() + "/0"), fd);
    EXPECT_EQ(read("/0", true, 0) + read("/missing", true, 64) + read("", true, 64), "-1-2-1");
    for (int i = 0; i < 302; ++i) {
        const std::string path = "/" + std::to_string(i);
        tree.write(path, path);
        EXPECT_EQ(read(path, true, 64), path + '\0');
    }
    EXPECT_EQ(file_cache::open_and_cache(tree.root() + "/301"), -24);
    EXPECT_EQ(file_cache::file_fds_cache.size(), 301U);
    file_cache::empty_cache_file();
}
