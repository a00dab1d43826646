// Peripherals: requests, reports, rates, and counts that the payload cannot hold.
#include "manager_support.h"
#include "peri_stat_manager.h"

namespace {
// A count byte and the records behind it.
std::string counted(int count, const std::string& records) {
    return static_cast<char>(count) + records;
}

std::string device(const std::string& name, std::uint64_t rd_kb, std::uint64_t wr_kb) {
    return field(name, 32) + native(rd_kb) + native(wr_kb);
}

std::string partition(const std::string& name, std::uint64_t avail, std::uint64_t blocks,
                      std::uint64_t block_size) {
    return device(name, avail, blocks) + native(block_size) + "12345678";
}

std::string heap(const std::string& name, std::uint64_t used) {
    return field(name, 16) + native(used);
}

// Cooling texts, then temperature texts, each behind a bar.
std::string thermals(int cooling, int thermal, std::string texts) {
    std::replace(texts.begin(), texts.end(), '|', '\0');
    return counted(cooling, counted(thermal, texts));
}
} // namespace

TEST(peri, requests) {
    served<peri_stat_manager> with;
    peri_stat_manager& m = with.m;
    EXPECT_EQ(with.sent(m.get_all_thermal(nullptr)), "AE06:19");
    EXPECT_EQ(with.sent(m.get_cooling_0(nullptr)), "AE06:1");
    EXPECT_EQ(with.sent(m.get_cooling_1(nullptr)), "AE06:2");
    EXPECT_EQ(with.sent(m.get_thermal(3, nullptr)), "AE06:3");
    EXPECT_EQ(with.sent(m.get_thermal(-1, nullptr)), "AE06:-1");
    EXPECT_EQ(with.sent(m.get_ion_info(nullptr)), "AE06:24");
    EXPECT_EQ(with.sent(m.get_meminfo(nullptr)), "AE06:26");
    EXPECT_EQ(with.sent(m.get_block_usage(nullptr)), "AE06:20");
    // The partitions that fit: what comes after the first that does not is lost even if it would.
    const std::string longest(1021, 'x');
    const std::string half(510, 'h');
    using names = std::vector<std::string>;
    const std::pair<names, std::string> lists[] = {
        {{}, std::string(1, '\0')},
        {{"system", "", "userdata"}, "\3system  userdata "},
        {{longest, ""}, "\2" + longest + " "},
        {{longest + "x", "a"}, "\2"},
        {{half, half, ""}, "\3" + half + " " + half + " "}, // the bound itself
        {{half, half + "h", "a"}, "\3" + half + " "},
        {names(256, "a"), std::string(1, '\0') + repeated("a ", 256)},
        {names(300, "part"), "\x2c" + repeated("part ", 204)}};
    for (const auto& [list, payload] : lists) {
        std::vector<const char*> parts;
        for (const std::string& name : list)
            parts.push_back(name.c_str());
        EXPECT_EQ(m.get_partition_info(parts, nullptr), 0);
        EXPECT_EQ(comparable(with.server.take_requests().at(0)),
                  request_bytes(0xAE06, 25, payload));
    }
}

TEST(peri, reports) {
    offline<peri_stat_manager> m;
    auto th = [&m](const std::string& text) { return report(m, m.th_parser, 3, text); };
    auto co = [&m](const std::string& text) { return report(m, m.co_parser, 1, text); };
    auto all = [&m](const std::string& bytes) { return report(m, m.all_th_parser, 19, bytes); };
    auto ion = [&m](const std::string& bytes) { return report(m, m.ion_parser, 24, bytes); };
    auto part = [&m](const std::string& bytes) { return report(m, m.part_parser, 25, bytes); };
    const std::string most = "18446744073709551615";
    const std::string n16(16, 'n');
    const std::string n32(32, 'n');
    // Single values: each case starts from the value of the one before.
    expect_each(th, {{"45000\n", "45000"},
                     {"", "45000"},
                     {" \n\t\n", "45000"},
                     {"1\nhot", "0"},
                     {"hot\n \t31000 mC", "31000"},
                     {"18446744073709551616", most},
                     {"-1", most}});
    expect_each(co, {{"3", "3"}, {"\n", "3"}, {"x", "0"}});
    // The list begins anew with each answer, its first value at 0.
    expect_each(
        all, {{thermals(0, 0, ""), "Thermal(mC):    Cooling_stat:   "},
              {thermals(2, 3, "1|2\n|45000\n|46000|47000|"),
               "Thermal(mC):    45000  46000  47000  Cooling_stat:   1      2      "},
              {thermals(3, 3, "|5|||7\n8|x|"),
               "Thermal(mC):    0      8      0      Cooling_stat:   0      5      5      "},
              {thermals(0, 2, "12345678|1|"), "Thermal(mC):    123456781      Cooling_stat:   "}});
    expect_each(ion,
                {{counted(0, ""), ""},
                 {counted(2, heap(n16, 1536) + heap("cma", 1 << 30)), n16 + ": 1.5K, cma: 1.0G"}});
    expect_each(part, {{counted(0, ""), "Partition Avail/Size: "},
                       {counted(2, partition("a", 1, 3, 512) + partition(n32, 2048, 4096, 4096)),
                        "Partition Avail/Size: a: 512.0B/1.5K, " + n32 + ": 8.0M/16.0M"}});
}

TEST(peri, block_rates_between_two_answers) {
    constexpr std::uint64_t big = 1ULL << 63;
    const std::string two = "Device         sda            sdb            \nRd/Wr(KB/s) ";
    const std::string name(32, 'd');
    const std::string one = "Device         " + name + "\nRd/Wr(KB/s) ";
    auto pair = [](std::uint64_t a, std::uint64_t b, std::uint64_t c, std::uint64_t d) {
        return counted(2, device("sda", a, b) + device("sdb", c, d));
    };
    const std::tuple<timeval, std::string, std::string> answers[] = {
        {{100, 0}, pair(10, 20, 0, 0), two + "      0/0            0/0      "},
        {{102, 0}, pair(1010, 21, 0, 3), two + "    500/0.5          0/1.5    "},
        // Six significant digits, and fields that are too narrow.
        {{103, 0}, pair(1235577, 30, 1, 12345678), two + "1.23457e+06/9            1/1.23457e+07"},
        // A counter that runs backwards wraps.
        {{104, 500000}, pair(0, 30, 1, 12345677), two + "1.22978e+19/0            0/1.22978e+19"},
        {{104, 501999}, pair(1, 30, 1, 12345677), two + "   1000/0            0/0      "},
        // Another number of devices: rates start again.
        {{105, 0}, counted(1, device(name, 7, big)), one + "      0/0      "},
        {{106, 0}, counted(1, device(name, 8, big + 512)), one + "      1/512    "},
        {{106, 999}, counted(1, device(name, 9, big + 513)), one + "    inf/inf    "},
        {{107, 0}, counted(0, ""), "Device         \nRd/Wr(KB/s) "}};
    served<peri_stat_manager> with;
    peri_stat_manager& m = with.m;
    block_stat_parser& block = *m.block_parser;
    for (const auto& [time, payload, expected] : answers) {
        EXPECT_EQ(report(m, m.block_parser, 20, payload, time), expected);
        block.last_time = time;
    }
    // A failed query leaves sample and time.
    with.server.next_text(20, counted(1, device("sda", 1, 2)));
    EXPECT_EQ(m.get_block_usage(nullptr), 0);
    const unsigned long received = with.connection->get_recv_time_us();
    with.server.next({error_packet(20, -19)});
    EXPECT_EQ(m.get_block_usage(nullptr), -19);
    EXPECT_EQ(
        static_cast<unsigned long>(block.last_time.tv_sec * 1000000 + block.last_time.tv_usec),
        received);
    EXPECT_EQ(block.stats->stat[0].wr_kb, 2U);
}

TEST(peri, takes_only_the_records_the_payload_holds) {
    for (int count : {0, 1, 127, 128, 170, 171, 255}) {
        std::string bytes = counted(count, "");
        for (int i = 1; i < 8192; ++i)
            bytes += static_cast<char>(i * 7);
        payload_area payload(bytes);
        offline<peri_stat_manager> m;
        m.block_parser->block_stat_parse(payload);
        m.part_parser->partition_parse(payload);
        m.ion_parser->parse_ion_info(payload);
        const block_stats& disks = *m.block_parser->stats;
        const auto& parts = m.part_parser->part_vec;
        const auto& heaps = m.ion_parser->ion_vec;
        EXPECT_EQ(line_of(+disks.num, parts.size(), heaps.size()),
                  line_of(std::min(count, 170), std::min(count, 127), count));
        auto same = [&payload](const void* records, std::size_t size) {
            return size == 0 || std::memcmp(records, payload + 1, size) == 0;
        };
        EXPECT_TRUE(same(disks.stat, disks.num * sizeof(block_stat)));
        EXPECT_TRUE(same(parts.data(), parts.size() * sizeof(part_info)));
        EXPECT_TRUE(same(heaps.data(), heaps.size() * sizeof(ion_info)));
    }
    // Texts that end with the payload, and none behind it.
    all_thermal_parser all;
    EXPECT_EQ(all.parse_all(payload_area("\2\xff" + std::string(8188, ' ') + "42")), 1);
    EXPECT_EQ(all.all_co, (std::vector<std::uint64_t>{42, 42}));
    EXPECT_EQ(all.all_th, std::vector<std::uint64_t>(255, 0));
    EXPECT_THROW(thermal_parser().parse_thermal(nullptr), std::logic_error);
    EXPECT_THROW(cooling_parser().parse_cooling(nullptr), std::logic_error);
}
