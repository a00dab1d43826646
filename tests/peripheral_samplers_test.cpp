// Memory, disks, file systems, sensors and ion heaps of trees of files and of this machine.
#include "child_process.h"
#include "running_server.h"
#include "sampler_asker.h"

#include "peri_stat_manager.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace {
using testing::ElementsAre;

constexpr int peri = 0xAE06;
constexpr std::size_t block_size = sizeof(block_stat);
constexpr std::size_t part_size = sizeof(part_info);

// Names of the answer's records of @p size bytes.
std::vector<std::string> names_in(const std::string& bytes, std::size_t size) {
    std::vector<std::string> names;
    for (std::size_t at = 1; at + size <= bytes.size(); at += size)
        names.emplace_back(bytes.c_str() + at);
    return names;
}

TEST(memory_sampler, only_lines_with_a_figure_are_sent) {
    const file_tree tree;
    tree.write("/proc/meminfo", "MemTotal:  100 kB\n\nSomething\nOdd: x\nEmpty:\n"
                                "Huge: 99999999999999999999 kB\nSlab: 3");
    sampler_asker asker(tree.root());
    EXPECT_EQ(asker.ask(peri, 26), 0);
    EXPECT_EQ(asker.bytes, "MemTotal:  100 kB\nSlab: 3\n");
}

std::string disk_line(const std::string& name, int read, int written) {
    return " 1 0 " + name + " 9 9 " + std::to_string(read) + " 9 9 9 " + std::to_string(written) +
           " 9 9 9 9\n";
}

const std::string disks = disk_line("vda", 4, 7) + disk_line("vda1", 4, 6) +
                          disk_line("nvme0n1", 1, 1) + disk_line("nvme0n1p2", 1, 1) +
                          disk_line("loop0", 0, 0) + disk_line("loop1", 8, 0) +
                          disk_line("dm-1", 2, 2) + disk_line("dm-10", 2, 2) + "torn line\n" +
                          disk_line("cciss/c0d0", 1, 1) + disk_line("zram0", 0, 0);

TEST(block_sampler, whole_devices_in_use) {
    const file_tree tree;
    tree.write("/proc/diskstats", disks);
    const auto expected = ElementsAre("vda", "nvme0n1", "loop1", "dm-1", "dm-10", "cciss/c0d0");
    sampler_asker asker(tree.root());
    EXPECT_EQ(asker.ask(peri, 20), 0);
    EXPECT_THAT(names_in(asker.bytes, block_size), expected) << "by name alone";
    for (const char* name : {"vda", "nvme0n1", "loop0", "loop1", "dm-1", "dm-10", "cciss!c0d0"})
        tree.write(std::string("/sys/block/") + name + "/stat", "");
    EXPECT_EQ(asker.ask(peri, 20), 0);
    EXPECT_THAT(names_in(asker.bytes, block_size), expected) << "by /sys/block";
    EXPECT_EQ(asker.bytes.size(), 1 + 6 * block_size);
    const auto first = asker.record<block_stat>(1);
    EXPECT_EQ(first.rd_kb, 2U);
    EXPECT_EQ(first.wr_kb, 3U);
}

TEST(block_sampler, devices_beyond_the_answer_are_left_out) {
    const file_tree tree;
    std::string many;
    for (int i = 0; i < 400; ++i)
        many += disk_line("dm-" + std::to_string(i) + std::string(40, 'x'), 2, 2);
    tree.write("/proc/diskstats", many);
    sampler_asker asker(tree.root());
    EXPECT_EQ(asker.ask(peri, 20), 0);
    EXPECT_EQ(asker.bytes.size(), 1 + 170 * block_size);
    EXPECT_EQ(asker.bytes[0], '\xAA');
    EXPECT_EQ(std::strlen(asker.bytes.c_str() + 1), 31U);
}

TEST(partition_sampler, names_choose_devices_and_mount_points) {
    const file_tree tree;
    tree.write("/proc/mounts", "rootfs / rootfs rw 0 0\n/dev/vda1 / ext4 rw 0 0\n"
                               "/dev/vda1 /again ext4 rw 0 0\n/dev/vdb /hidden ext4 rw 0 0\n"
                               "tmpfs /hidden tmpfs rw 0 0\n/dev/mapper/vg-a /a\\040b ext4 rw 0 0\n"
                               "far:/x /far nfs rw 0 0\n/dev/vdc /gone ext4 rw 0 0\n");
    for (const char* point : {"/again/x", "/hidden/x", "/a b/x", "/far/x"})
        tree.write(point, "");
    const struct {
        std::string names;
        std::vector<std::string> found;
    } cases[] = {
        {"", {"vda1", "vg-a"}},
        {"vda1 /dev/vda1 / /again/ ", {"vda1", "/dev/vda1", "/", "/again/"}},
        {"vdb nosuch /nosuch /far /a\\040b vg-a", {"/far", "/a b", "vg-a"}},
        {" ", {"vda1", "vg-a"}},
        {"/gone", {}},
        {"\\", {}},
    };
    sampler_asker asker(tree.root());
    for (const auto& each : cases) {
        EXPECT_EQ(asker.ask(peri, 25, "\1" + each.names), 0);
        EXPECT_EQ(names_in(asker.bytes, part_size), each.found) << each.names;
        EXPECT_EQ(static_cast<std::size_t>(asker.bytes[0]), each.found.size());
    }
    EXPECT_EQ(asker.ask(peri, 25), 0) << "no payload at all";
    EXPECT_EQ(names_in(asker.bytes, part_size).size(), 2U);
    std::string many(1, '\1');
    for (int i = 0; i < 500; ++i)
        many += "/ ";
    EXPECT_EQ(asker.ask(peri, 25, many), 0);
    EXPECT_EQ(asker.bytes.size(), 1 + 127 * part_size);
}

// Zone 1 cannot be read in time, 2 is missing, 3 is below zero, 4 is no number.
void write_sensors(const file_tree& tree) {
    const std::string zone = "/sys/class/thermal/thermal_zone";
    tree.write(zone + "0/temp", "45000\n");
    tree.write(zone + "1/type", "slow");
    ASSERT_EQ(mkfifo((tree.root() + zone + "1/temp").c_str(), 0600), 0);
    tree.write(zone + "3/temp", "-2000\n");
    tree.write(zone + "4/temp", "\n");
    tree.write(zone + "5/temp", "47000\n");
    tree.write("/sys/class/thermal/cooling_device1/cur_state", "3\n");
}

TEST(thermal_sampler, sensor_without_a_figure_leaves_the_others_in_place) {
    const file_tree tree;
    write_sensors(tree);
    const running_server server(tree.root());
    peri_stat_manager manager("127.0.0.1", server.port());
    for (int zone = 5; manager.get_thermal(3 + zone, nullptr) != 0;) {
    } // on a busy machine a healthy sensor may come late, too
    EXPECT_EQ(manager.get_all_thermal(nullptr), 0);
    EXPECT_THAT(manager.all_th_parser->all_th, ElementsAre(45000, 0, 0, 0, 0, 47000));
    EXPECT_THAT(manager.all_th_parser->all_co, ElementsAre(0, 3));
    const int results[] = {0, -ETIMEDOUT, -ENOENT, -ERANGE, -EIO, 0};
    for (int zone = 0; zone < 6; ++zone)
        EXPECT_EQ(manager.get_thermal(3 + zone, nullptr), results[zone]) << zone;
    EXPECT_EQ(manager.th_parser->temp, 47000U);
    EXPECT_EQ(manager.get_cooling_0(nullptr), -ENOENT);
    EXPECT_EQ(manager.get_cooling_1(nullptr), 0);
    EXPECT_EQ(manager.co_parser->stat, 3U);
}

TEST(ion_sampler, heaps_by_name) {
    const file_tree tree;
    sampler_asker asker(tree.root());
    EXPECT_EQ(asker.ask(peri, 24), 0);
    EXPECT_EQ(asker.bytes, std::string(1, '\0'));
    const std::string heaps = "/sys/kernel/debug/ion/heaps/";
    tree.write(heaps + "system", "  client  pid  size\n  total orphaned 5\n   total    4096\n");
    tree.write(heaps + "a_name_beyond_the_field", "total 7\n");
    tree.write(heaps + "torn", "total\n");
    EXPECT_EQ(asker.ask(peri, 24), 0);
    EXPECT_THAT(names_in(asker.bytes, sizeof(ion_info)), ElementsAre("a_name_beyond_t", "system"));
    EXPECT_EQ(asker.record<ion_info>(1 + sizeof(ion_info)).used, 4096U);
}

std::string slurp(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TEST(this_machine, memory_and_file_systems_agree_with_the_kernel) {
    const running_server server;
    peri_stat_manager manager("127.0.0.1", server.port());
    ASSERT_EQ(manager.get_meminfo(nullptr), 0);
    std::unordered_map<std::string, long> kernel;
    meminfo_parser().parseMeminfo(slurp("/proc/meminfo"), kernel);
    const meminfo& mem = manager.mem_parser->mem;
    const auto total = static_cast<double>(kernel["MemTotal"]);
    EXPECT_EQ(mem.memTotal, static_cast<std::uint64_t>(kernel["MemTotal"]));
    EXPECT_NEAR(static_cast<double>(mem.memAvailable), static_cast<double>(kernel["MemAvailable"]),
                total / 10);

    std::vector<const char*> names{"/", "/proc", "nosuch"};
    ASSERT_EQ(manager.get_partition_info(names, nullptr), 0);
    ASSERT_EQ(manager.part_parser->part_vec.size(), 2U);
    const part_info& root = manager.part_parser->part_vec[0];
    struct statvfs size {};
    ASSERT_EQ(statvfs("/", &size), 0);
    EXPECT_EQ(root.f_blocks, size.f_blocks);
    EXPECT_EQ(root.f_frsize, size.f_frsize);
    EXPECT_NEAR(static_cast<double>(root.f_bavail), static_cast<double>(size.f_bavail),
                static_cast<double>(size.f_blocks) / 10);
}

} // namespace
