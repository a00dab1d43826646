// Codecs, time differences, formatting and the cache of open files.
#include "child_process.h"
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

TEST(common_func, file_cache) {
    file_tree files;
    files.write("/a", "0123456789");
    const std::string path = files.root() + "/a";
    const auto open_files = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto read = [](const std::string& name, int size, bool cache) {
        std::vector<unsigned char> buf(100);
        const int n = file_cache::read_file(name, buf.data(), size, cache);
        return std::to_string(n) + reinterpret_cast<char*>(buf.data());
    };
    const auto open_before = open_files();
    // A map that cannot grow acts as if memory had run out.
    file_cache::file_fds_cache.max_load_factor(1e-18F);
    EXPECT_THROW(read(path, 100, true), std::bad_alloc);
    EXPECT_THROW(file_cache::open_and_cache(path), std::bad_alloc);
    file_cache::file_fds_cache.max_load_factor(1);
    EXPECT_EQ(open_files(), open_before);
    EXPECT_EQ(read(path, 100, false), "100123456789");
    EXPECT_EQ(open_files(), open_before);
    EXPECT_EQ(read(path, 100, true) + read(path, 5, true), "10012345678940123");
    EXPECT_EQ(file_cache::open_and_cache(path), file_cache::open_and_cache(path));
    EXPECT_EQ(open_files(), open_before + 1);
    EXPECT_EQ(read(path + "b", 5, true) + read(path, 0, true), "-2-1");
    EXPECT_EQ(file_cache::open_and_cache(path + "b"), -2);
    file_cache::empty_cache_file();
    EXPECT_EQ(open_files(), open_before);
}
