// Codecs, formatting, time differences and the cache of open files.
#include "child_process.h"
#include "common_func.h"

#include <gtest/gtest.h>
#include <iomanip>
#include <set>
#include <sstream>
#include <thread>

TEST(codecs, write_32_bits_little_endian_and_64_bits_big_endian) {
    unsigned char bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(u8_to_u32(bytes), 0x04030201U);
    EXPECT_EQ(u8_to_u64(bytes), 0x0102030405060708UL);
    unsigned char written[8] = {};
    u64_to_u8(0x0102030405060708UL, written);
    EXPECT_EQ(std::string(written, written + 8), std::string(bytes, bytes + 8));
    u32_to_u8(0xF4030201U, written);
    EXPECT_EQ(u8_to_u32(written), 0xF4030201U);
    EXPECT_EQ(reverse8(0x01), 0x80);
    EXPECT_EQ(reverse8(0x2F), 0xF4);
    EXPECT_EQ(reverse32(1), 0x80000000U);
    EXPECT_EQ(reverse32(0x0000F00DU), 0xB00F0000U);
    EXPECT_EQ(crc32(bytes, 8, crc_32), 0U);
    EXPECT_EQ(crc32(nullptr, -1, crc_32_MPEG2), 0U);
}

TEST(show_by_unit, writes_one_decimal_and_a_unit) {
    const struct {
        unsigned long value;
        int unit;
        const char* text;
    } cases[] = {
        {0, 0, "0.0B"},          {512, 0, "512.0B"},   {1024, 0, "1.0K"},
        {1536, 0, "1.5K"},       {1023, 1, "1023.0K"}, {2048, 1, "2.0M"},
        {1048575, 0, "1024.0K"}, {1048576, 0, "1.0M"}, {1UL << 40, 0, "1.0T"},
        {1UL << 50, 0, "1.0P"},  {~0UL, 0, "16.0E"},   {1UL << 60, 1, "1.0Z"},
        {~0UL, 8, "16.0Y"},      {~0UL, 255, "16.0Y"}, {1075, 0, "1.0K"},
        {1076, 0, "1.1K"},       {3951104, 1, "3.8G"},
    };
    for (const auto& c : cases) {
        std::ostringstream out;
        show_by_unit(c.value, out, static_cast<unsigned char>(c.unit));
        EXPECT_EQ(out.str(), c.text) << c.value << " from unit " << c.unit;
    }
    std::ostringstream padded;
    padded << std::left << std::setfill('.') << std::setw(8);
    show_by_unit(1024, padded, 0);
    EXPECT_EQ(padded.str(), "1.0K....");
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
    std::string read(const std::string& path, bool cache, int room = 64) {
        std::string text(static_cast<std::size_t>(room), '?');
        const int n =
            file_cache::read_file(path, reinterpret_cast<unsigned char*>(text.data()), room, cache);
        return n < 0 ? std::to_string(n) : text.substr(0, static_cast<std::size_t>(n) + 1);
    }
    file_tree tree_;
};

TEST_F(file_cache_test, reads_from_the_start_again_and_keeps_one_descriptor) {
    const std::string path = tree_.root() + "/counter";
    tree_.write("/counter", "12345678");
    EXPECT_EQ(read(path, false), std::string("12345678\0", 9));
    EXPECT_TRUE(file_cache::file_fds_cache.empty());
    EXPECT_EQ(read(path, true, 5), std::string("1234\0", 5));
    const int fd = file_cache::open_and_cache(path);
    tree_.write("/counter", "87");
    EXPECT_EQ(read(path, true), std::string("87\0", 3));
    EXPECT_EQ(file_cache::open_and_cache(path), fd);
    EXPECT_EQ(read(path, true, 0), "-1");
    tree_.write("/counter", "");
    EXPECT_EQ(read(path, true), "?");
    EXPECT_EQ(read(tree_.root() + "/missing", true), "-2");
    EXPECT_EQ(file_cache::open_and_cache(tree_.root() + "/missing"), -2);
    EXPECT_EQ(read(tree_.root(), true), "-1");
}

TEST_F(file_cache_test, holds_301_files_and_reads_others_uncached) {
    for (int i = 0; i < 302; ++i)
        tree_.write("/" + std::to_string(i), std::to_string(i));
    for (int i = 0; i < 301; ++i)
        ASSERT_GE(file_cache::open_and_cache(tree_.root() + "/" + std::to_string(i)), 0);
    EXPECT_EQ(file_cache::open_and_cache(tree_.root() + "/301"), -24);
    EXPECT_EQ(read(tree_.root() + "/301", true), std::string("301\0", 4));
    EXPECT_EQ(file_cache::file_fds_cache.size(), 301U);
}

TEST_F(file_cache_test, lets_threads_share_files) {
    tree_.write("/a", std::string(30, 'a'));
    tree_.write("/b", std::string(40, 'b'));
    std::vector<std::thread> readers;
    for (int t = 0; t < 4; ++t)
        readers.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                const bool a = (t + i) % 2 == 0;
                EXPECT_EQ(read(tree_.root() + (a ? "/a" : "/b"), true),
                          (a ? std::string(30, 'a') : std::string(40, 'b')) + '\0');
            }
        });
    for (std::thread& reader : readers)
        reader.join();
}
