// Memory, disks, file systems, sensors and ion heaps of trees of files and of this machine.
#include "child_process.h"
#include "manager_support.h"
#include "running_server.h"
#include "sampler_asker.h"

#include "peri_stat_manager.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace {
struct peripherals : testing::Test {
    // The names in the records of @p size bytes after the count, each followed by a blank.
    std::string names(int sub, std::size_t size, const std::string& payload = "") {
        EXPECT_EQ(asker.ask(0xAE06, sub, payload), 0);
        std::string all;
        for (std::size_t at = 1; at + size <= asker.bytes.size(); at += size)
            all += asker.bytes.c_str() + at + std::string(" ");
        EXPECT_EQ(asker.bytes.size(), 1 + static_cast<unsigned char>(asker.bytes[0]) * size);
        return all;
    }
    static std::string disk_line(const std::string& name, int read, int written) {
        return " 1 0 " + name + " 9 9 " + std::to_string(read) + " 9 9 9 " +
               std::to_string(written) + " 9 9 9 9\n";
    }

    file_tree tree;
    sampler_asker asker{tree.root()};
};
} // namespace

TEST_F(peripherals, whole_devices) {
    std::string lines = disk_line("loop0", 0, 0) + "torn line\n" + disk_line("vda", 4, 7);
    for (const char* name :
         {"vda1", "nvme0n1", "nvme0n1p2", "loop1", "dm-1", "dm-10", "cciss/c0d0"})
        lines += disk_line(name, 1, 1);
    tree.write("/proc/diskstats", lines);
    const std::string expected = "loop0 vda nvme0n1 loop1 dm-1 dm-10 cciss/c0d0 ";
    EXPECT_EQ(names(20, sizeof(block_stat)), expected) << "by name alone";
    EXPECT_EQ(asker.bytes.substr(33 + 48, 16), native(2UL) + native(3UL));
    for (const char* name : {"vda", "nvme0n1", "loop0", "loop1", "dm-1", "dm-10", "cciss!c0d0"}) {
        tree.write(std::string("/sys/block/") + name + "/stat", "");
        EXPECT_EQ(names(20, sizeof(block_stat)), expected) << "/sys/block up to " << name;
    }
    tree.write("/proc/diskstats", repeated(disk_line("dm-1", 2, 2), 400));
    EXPECT_EQ(names(20, sizeof(block_stat)), repeated("dm-1 ", 170));
}

// A client compares by position, and compares nothing across a change of the number of devices.
TEST_F(peripherals, devices_that_come_and_go) {
    const std::string vda = disk_line("vda", 4, 4);
    const std::string vdb = disk_line("vdb", 4, 4);
    const std::string vdc = disk_line("vdc", 4, 4);
    const struct {
        const char* name;
        std::string lines;
        std::string listed;
    } looks[] = {{"two disks and a spare", disk_line("loop0", 0, 0) + vda + vdb, "loop0 vda vdb "},
                 {"first use of the spare", disk_line("loop0", 2, 2) + vda + vdb, "loop0 vda vdb "},
                 {"one new disk", vda + vdb + vdc + vda, "vda vdb vdc vda "},
                 {"one in the place of another", vda + vdc + vdb + vda, "vda vdc vdb "},
                 {"and once more", vda + vdc + vdb + vda, "vda vdc vdb vda "},
                 {"more spares than fit",
                  vda + repeated(disk_line("ram0", 0, 0), 100) + disk_line("nbd0", 1, 3) +
                      repeated(disk_line("loop0", 0, 0), 100) + vdb,
                  "vda " + repeated("ram0 ", 100) + "nbd0 " + repeated("loop0 ", 67) + "vdb "}};
    for (const auto& look : looks) {
        tree.write("/proc/diskstats", look.lines);
        EXPECT_EQ(names(20, sizeof(block_stat)), look.listed) << look.name;
    }
}

TEST_F(peripherals, names_choose_devices_and_mount_points) {
    tree.write("/proc/mounts", "rootfs / rootfs rw 0 0\n/dev/vda1 / ext4 rw 0 0\n"
                               "/dev/vda1 /again ext4 rw 0 0\n/dev/vdb /hidden ext4 rw 0 0\n"
                               "tmpfs /hidden tmpfs rw 0 0\n/dev/mapper/vg-a /a\\040b ext4 rw 0 0\n"
                               "far:/x /far nfs rw 0 0\n/dev/vdc /gone ext4 rw 0 0\n");
    for (const char* point : {"/again/x", "/hidden/x", "/a b/x", "/far/x"})
        tree.write(point, "");
    auto found = [this](const std::string& wanted) { return names(25, sizeof(part_info), wanted); };
    expect_each(found,
                {{"an empty request", "", "vda1 vg-a "},
                 {"no name", "\1", "vda1 vg-a "},
                 {"a file system that is gone", "\1/gone", ""},
                 {"a lone backslash", "\1\\", ""},
                 {"one device by all its names", "\1vda1 /dev/vda1 / /again/ ",
                  "vda1 /dev/vda1 / /again/ "},
                 {"hidden, missing, remote, with a blank",
                  "\1vdb nosuch /nosuch /far /a\\040b vg-a", "/far /a b vg-a "},
                 {"more than an answer holds", "\1" + repeated("/ ", 500), repeated("/ ", 127)}});
}

TEST_F(peripherals, sensor_without_a_figure_leaves_the_others_in_place) {
    const std::string zone = "/sys/class/thermal/thermal_zone";
    for (auto [item, text] : {std::pair("0/temp", "45000"),
                              {"1/type", "slow"},
                              {"3/temp", "-2000"},
                              {"4/temp", "\n"},
                              {"5/temp", "47000\n"},
                              {"18/temp", "48000\n"},
                              {"300/temp", "49000\n"}})
        tree.write(zone + item, text);
    ASSERT_EQ(mkfifo((tree.root() + zone + "1/temp").c_str(), 0600), 0); // hangs; there is no 2
    tree.write("/sys/class/thermal/cooling_device1/cur_state", "3\n");
    tree.write("/sys/class/thermal/cooling_device3/cur_state", "4\n");
    const running_server server(tree.root());
    peri_stat_manager m("127.0.0.1", server.port());
    while (m.get_thermal(3 + 5, nullptr) != 0) {
    } // on a busy machine a healthy sensor may come late, too
    EXPECT_EQ(m.get_all_thermal(nullptr), 0);
    std::vector<std::int64_t> temperatures(19, -274000);
    for (const auto& [index, temperature] :
         {std::pair(0, 45000), {3, -2000}, {5, 47000}, {18, 48000}})
        temperatures[static_cast<std::size_t>(index)] = temperature;
    const auto as_signed = [](const std::vector<std::uint64_t>& figures) {
        return std::vector<std::int64_t>(figures.begin(), figures.end());
    };
    EXPECT_EQ(as_signed(m.all_th_parser->all_th), temperatures);
    EXPECT_EQ(as_signed(m.all_th_parser->all_co), (std::vector<std::int64_t>{-1, 3, -1, 4}));
    int item = 3;
    for (int result : {0, -ETIMEDOUT, -ENOENT, 0, -EIO, 0})
        EXPECT_EQ(m.get_thermal(item++, nullptr), result) << item;
    EXPECT_EQ(m.get_cooling_0(nullptr), -ENOENT);
    EXPECT_EQ(m.get_cooling_1(nullptr), 0);
    EXPECT_EQ(line_of(m.th_parser->temp, m.co_parser->stat), "47000 3 ");
}

TEST_F(peripherals, sensors_are_counted_up_to_what_an_answer_holds) {
    for (const std::string kind : {"cooling_device", "thermal_zone"})
        for (int i = 0; i < 300; ++i)
            tree.write("/sys/class/thermal/" + kind + std::to_string(i) +
                           (kind[0] == 'c' ? "/cur_state" : "/temp"),
                       "-1000000000000000000\n");
    const std::string all = "\xFF\x75" + repeated(field("-1000000000000000000\n", 22), 255 + 117);
    int tries = 0;
    do // on a busy machine some may come late
        ASSERT_EQ(asker.ask(0xAE06, 19), 0);
    while (asker.bytes != all && ++tries < 50);
    EXPECT_TRUE(asker.bytes == all);
}

TEST_F(peripherals, ion_heaps_by_name_and_memory_lines_with_a_figure) {
    EXPECT_EQ(names(24, sizeof(ion_info)), "");
    tree.write("/sys/kernel/debug/ion", "no folder");
    EXPECT_EQ(names(24, sizeof(ion_info)), "") << "no /dev/ion";
    tree.write("/dev/ion", "");
    EXPECT_EQ(asker.ask(0xAE06, 24), -ENOTDIR);
    std::filesystem::remove(tree.root() + "/sys/kernel/debug/ion");
    const std::string heaps = "/sys/kernel/debug/ion/heaps/";
    tree.write(heaps + "system", "  client  pid  size\n  total orphaned 5\n   total    4096\n");
    tree.write(heaps + "a_name_beyond_the_field", "total 7\n");
    tree.write(heaps + "torn", "total\n");
    EXPECT_EQ(names(24, sizeof(ion_info)), "a_name_beyond_t system ");
    EXPECT_EQ(asker.record<ion_info>(1 + sizeof(ion_info)).used, 4096U);
    tree.write("/proc/meminfo", "MemTotal:  100 kB\n\nSomething\nOdd: x\nEmpty:\nSlab: 3");
    EXPECT_EQ(asker.ask(0xAE06, 26), 0);
    EXPECT_EQ(asker.bytes, "MemTotal:  100 kB\nSlab: 3\n");
}
