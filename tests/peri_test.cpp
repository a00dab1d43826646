// Peripherals: requests, reports, rates, and counts that the payload cannot hold.
#include "manager_support.h"
#include "peri_stat_manager.h"

namespace {
using namespace std::string_literals;
using manager = peri_stat_manager;

// A count byte and the records after it.
std::string counted(int count, const std::string& records) {
    return static_cast<char>(count) + records;
}

// A name and figures.
std::string record(const std::string& name, std::size_t size, std::vector<std::uint64_t> figures) {
    std::string bytes = field(name, size);
    for (std::uint64_t figure : figures)
        bytes += native(figure);
    return bytes;
}

std::string disks(std::uint64_t a, std::uint64_t b, std::uint64_t c, std::uint64_t d) {
    return counted(2, record("sda", 32, {a, b}) + record("sdb", 32, {c, d}));
}
} // namespace

TEST(peri, requests) {
    served<manager> with;
    EXPECT_EQ(
        with.sent_by({&manager::get_all_thermal, &manager::get_cooling_0, &manager::get_cooling_1,
                      &manager::get_ion_info, &manager::get_meminfo, &manager::get_block_usage}),
        "AE06:19 AE06:1 AE06:2 AE06:24 AE06:26 AE06:20");
    EXPECT_EQ(with.sent(with.m.get_thermal(3, nullptr)), "AE06:3");
    EXPECT_EQ(with.sent(with.m.get_thermal(-1, nullptr)), "AE06:-1");
    // The partitions that fit: what comes after the first that does not is lost even if it would.
    const std::string longest(1021, 'x');
    const std::string half(510, 'h');
    using names = std::vector<std::string>;
    const std::pair<names, std::string> lists[] = {
        {{}, std::string(1, '\0')},
        {{"system", "", "userdata"}, "\3system  userdata "},
        {{longest, ""}, "\2" + longest + " "},
        {{half, half, ""}, "\3" + half + " " + half + " "}, // the bound itself
        {{half, half + "h", "a"}, "\3" + half + " "},
        {names(300, "part"), "\x2c" + repeated("part ", 204)}};
    for (const auto& [list, payload] : lists) {
        std::vector<const char*> parts;
        for (const std::string& name : list)
            parts.push_back(name.c_str());
        EXPECT_EQ(with.m.get_partition_info(parts, nullptr), 0);
        EXPECT_EQ(comparable(with.server.take_requests()[0]), request_bytes(0xAE06, 25, payload));
    }
}

TEST(peri, reports) {
    offline<manager> m;
    auto by = [&m](auto parser, int sub) {
        return [&m, parser, sub](const std::string& text) { return report(m, parser, sub, text); };
    };
    // Single values; each case starts from the value of the one before.
    expect_each(by(m.th_parser, 3), {{"a value", "45000\n", "45000"},
                                     {"nothing keeps the value", "", "45000"},
                                     {"so do blanks", " \n\t\n", "45000"},
                                     {"a last line that is no number", "1\nhot", "0"},
                                     {"the last line with anything", "hot\n \t31000 mC", "31000"},
                                     {"below zero", "-1", "18446744073709551615"}});
    expect_each(by(m.co_parser, 1),
                {{"a state", "3", "3"}, {"nothing keeps it", "\n", "3"}, {"no number", "x", "0"}});
    // Two lists, each a count and as many texts that end in a NUL. A list begins anew with each
    // answer, its first value at 0.
    const std::string thermal = "Thermal(mC):    ";
    expect_each(by(m.all_th_parser, 19),
                {{"nothing", "\0\0"s, thermal + "Cooling_stat:   "},
                 {"both lists",
                  "\2\3"
                  "1\0"
                  "2\n\0"
                  "45000\n\0"
                  "46000\0"
                  "47000\0"s,
                  thermal + "45000  46000  47000  Cooling_stat:   1      2      "},
                 {"empty texts repeat the value before",
                  "\3\3"
                  "\0"
                  "5\0"
                  "\0"
                  "\0"
                  "7\n8\0"
                  "x\0"s,
                  thermal + "0      8      0      Cooling_stat:   0      5      5      "},
                 {"a value that fills its column",
                  "\0\2"
                  "12345678\0"
                  "1\0"s,
                  thermal + "123456781      Cooling_stat:   "}});
    const std::string n16(16, 'n');
    const std::string n32(32, 'n');
    const std::string heaps = record(n16, 16, {1536}) + record("cma", 16, {1 << 30});
    const std::string parts = record("a", 32, {1, 3, 512, 9}) + record(n32, 32, {8, 16, 4096, 9});
    EXPECT_EQ(report(m, m.ion_parser, 24, counted(2, heaps)), n16 + ": 1.5K, cma: 1.0G");
    std::ostringstream padded; // a width goes to what comes first
    m.show_result(m.ion_parser, padded << std::setfill('*') << std::setw(18));
    EXPECT_EQ(padded.str(), "**" + n16 + ": 1.5K, cma: 1.0G");
    EXPECT_EQ(report(m, m.part_parser, 25, counted(2, parts)),
              "Partition Avail/Size: a: 512.0B/1.5K, " + n32 + ": 32.0K/64.0K");
}

TEST(peri, block_rates_between_two_answers) {
    constexpr std::uint64_t big = 1ULL << 63;
    const std::string two = "Device         sda            sdb            \nRd/Wr(KB/s) ";
    const std::string name(32, 'd');
    const std::string one = "Device         " + name + "\nRd/Wr(KB/s) ";
    const std::tuple<timeval, std::string, std::string> answers[] = {
        {{100, 0}, disks(10, 20, 0, 0), two + "      0/0            0/0      "},
        {{102, 0}, disks(1010, 21, 0, 3), two + "    500/0.5          0/1.5    "},
        // Six significant digits, and fields that are too narrow.
        {{103, 0}, disks(1235577, 30, 1, 12345678), two + "1.23457e+06/9            1/1.23457e+07"},
        // A counter that runs backwards wraps.
        {{104, 500000}, disks(0, 30, 1, 12345677), two + "1.22978e+19/0            0/1.22978e+19"},
        {{104, 501999}, disks(1, 30, 1, 12345677), two + "   1000/0            0/0      "},
        // Another number of devices: rates start again.
        {{105, 0}, counted(1, record(name, 32, {7, big})), one + "      0/0      "},
        {{106, 0}, counted(1, record(name, 32, {8, big + 512})), one + "      1/512    "},
        {{106, 999}, counted(1, record(name, 32, {9, big + 513})), one + "    inf/inf    "},
        {{107, 0}, "", "Device         \nRd/Wr(KB/s) "}};
    served<manager> with;
    block_stat_parser& block = *with.m.block_parser;
    for (const auto& [time, payload, expected] : answers) {
        EXPECT_EQ(report(with.m, with.m.block_parser, 20, payload, time), expected);
        block.last_time = time;
    }
    EXPECT_EQ(with.m.get_block_usage(nullptr), 0);
    const long last_us = block.last_time.tv_sec * 1000000 + block.last_time.tv_usec;
    EXPECT_EQ(last_us, static_cast<long>(with.connection->get_recv_time_us()));
}

TEST(peri, takes_only_the_records_the_payload_holds) {
    for (int count : {0, 1, 127, 128, 170, 171, 255}) {
        std::string bytes = counted(count, "");
        for (int i = 1; i < 8192; ++i)
            bytes += static_cast<char>(i * 7);
        payload_area payload(bytes);
        offline<manager> m;
        m.block_parser->block_stat_parse(payload);
        m.part_parser->partition_parse(payload);
        m.ion_parser->parse_ion_info(payload);
        auto same = [&bytes](const auto* records, std::size_t taken, int expected) {
            const auto* first = reinterpret_cast<const char*>(records);
            EXPECT_EQ(taken, static_cast<std::size_t>(expected));
            EXPECT_TRUE(std::equal(first, first + taken * sizeof *records, bytes.begin() + 1));
        };
        same(m.block_parser->stats->stat, m.block_parser->stats->num, std::min(count, 170));
        same(m.part_parser->part_vec.data(), m.part_parser->part_vec.size(), std::min(count, 127));
        same(m.ion_parser->ion_vec.data(), m.ion_parser->ion_vec.size(), count);
    }
    // Texts that end with the payload.
    all_thermal_parser all;
    EXPECT_EQ(all.parse_all(payload_area("\2\xff" + std::string(8188, ' ') + "42")), 1);
    EXPECT_EQ(all.all_co, (std::vector<std::uint64_t>{42, 42}));
    EXPECT_EQ(all.all_th, std::vector<std::uint64_t>(255, 0));
}
