// Codecs, formatting, time differences and the cache of open files.
#include "child_process.h"
#include "common_func.h"

#include <iomanip>
#include <sstream>
#include <thread>

TEST(codecs, write_32_bits_little_endian_and_64_bits_big_endian) {
    unsigned char bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(u8_to_u32(bytes), 0x04030201U);
    EXPECT_EQ(u8_to_u64(bytes), 0x0102030405060708UL);
    u64_to_u8(0xF102030405060708UL, bytes);
    EXPECT_EQ(u8_to_u64(bytes), 0xF102030405060708UL);
    u32_to_u8(0xF4030201U, bytes);
    EXPECT_EQ(u8_to_u32(bytes), 0xF4030201U);
    EXPECT_EQ(reverse8(0x2F), 0xF4);
    EXPECT_EQ(reverse32(0x0000F00DU), 0xB00F0000U);
    EXPECT_EQ(crc32(bytes, 8, crc_32) + crc32(nullptr, -1, crc_32_MPEG2), 0U);
}

TEST(show_by_unit, writes_one_decimal_and_a_unit) {
    const std::tuple<unsigned long, int, const char*> cases[] = {
        {0, 0, "0.0B"},         {512, 0, "512.0B"},     {1024, 0, "1.0K"},       {1536, 0, "1.5K"},
        {1023, 1, "1023.0K"},   {2048, 1, "2.0M"},      {1048575, 0, "1024.0K"}, {1075, 0, "1.0K"},
        {1048576, 0, "1.0M"},   {1UL << 40, 0, "1.0T"}, {1UL << 50, 0, "1.0P"},  {~0UL, 0, "16.0E"},
        {1UL << 60, 1, "1.0Z"}, {~0UL, 8, "16.0Y"},     {~0UL, 255, "16.0Y"},    {1076, 0, "1.1K"}};
    for (const auto& [value, unit, text] : cases) {
        std::ostringstream out;
        out << std::left << std::setfill('.') << std::setw(8);
        show_by_unit(value, out, static_cast<unsigned char>(unit));
        EXPECT_EQ(out.str(), (text + std::string(8, '.')).substr(0, 8)) << value;
    }
}

TEST(time_diff, truncates_microseconds_and_wraps) {
    timeval start{10, 999999};
    timeval end{11, 0};
    EXPECT_EQ(time_diff(start, end), 1U);
    EXPECT_EQ(time_diff_us(start, end), 1U);
    EXPECT_EQ(time_diff(end, start), static_cast<std::uint64_t>(-1));
    EXPECT_EQ(ms_to_ujiffies(1009), 100U);
}

class file_cache_test : public testing::Test {
protected:
    ~file_cache_test() override { file_cache::empty_cache_file(); }
    // What was read and the byte behind it, or the code.
    std::string read(const std::string& path, bool cache, int room = 64) {
        std::string text(static_cast<std::size_t>(room), '?');
        const int n = file_cache::read_file(
            tree.root() + path, reinterpret_cast<unsigned char*>(text.data()), room, cache);
        return n < 0 ? std::to_string(n) : text.substr(0, static_cast<std::size_t>(n) + 1);
    }
    file_tree tree;
};

TEST_F(file_cache_test, reads_from_the_start_again_and_keeps_one_descriptor) {
    tree.write("/counter", "12345678");
    EXPECT_EQ(read("/counter", false), std::string("12345678\0", 9));
    EXPECT_TRUE(file_cache::file_fds_cache.empty());
    EXPECT_EQ(read("/counter", true, 5), std::string("1234\0", 5));
    const int fd = file_cache::open_and_cache(tree.root() + "/counter");
    tree.write("/counter", "87");
    EXPECT_EQ(read("/counter", true), std::string("87\0", 3));
    EXPECT_EQ(file_cache::open_and_cache(tree.root() + "/counter"), fd);
    EXPECT_EQ(read("/counter", true, 0), "-1");
    tree.write("/counter", "");
    EXPECT_EQ(read("/counter", true), "?");
    EXPECT_EQ(read("/missing", true), "-2");
    EXPECT_EQ(read("", true), "-1");
}

TEST_F(file_cache_test, holds_301_files_and_reads_others_uncached_for_threads_together) {
    for (int i = 0; i < 302; ++i)
        tree.write("/" + std::to_string(i), std::to_string(i));
    std::vector<std::thread> readers;
    for (int t = 0; t < 4; ++t)
        readers.emplace_back([this] {
            for (int i = 0; i < 301; ++i)
                EXPECT_EQ(read("/" + std::to_string(i), true), std::to_string(i) + '\0');
        });
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(file_cache::open_and_cache(tree.root() + "/301"), -24);
    EXPECT_EQ(read("/301", true), std::string("301\0", 4));
    EXPECT_EQ(file_cache::file_fds_cache.size(), 301U);
}
