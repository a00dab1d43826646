// Peripherals: requests, reports, rates, and counts that the payload cannot hold.
#include "log_capture.h"
#include "manager_support.h"
#include "peri_stat_manager.h"

namespace {
constexpr int command = 0xAE06;

// A count byte and the records behind it.
std::string counted(std::size_t count, const std::string& records) {
    return static_cast<char>(count) + records;
}

std::string device(const std::string& name, std::uint64_t rd_kb, std::uint64_t wr_kb) {
    return field(name, 32) + native(rd_kb) + native(wr_kb);
}

std::string partition(const std::string& name, std::uint64_t avail, std::uint64_t blocks,
                      std::uint64_t block_size) {
    return field(name, 32) + native(avail) + native(blocks) + native(block_size) +
           native<std::uint64_t>(99);
}

std::string heap(const std::string& name, std::uint64_t used) {
    return field(name, 16) + native(used);
}

// Cooling texts, then temperature texts.
std::string thermals(int cooling, int thermal, const std::vector<std::string>& texts) {
    std::string payload = {static_cast<char>(cooling), static_cast<char>(thermal)};
    for (const std::string& text : texts)
        payload += text + '\0';
    return payload;
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string all;
    for (; count > 0; --count)
        all += text;
    return all;
}

} // namespace

TEST(peri, sends_the_request_of_each_query) {
    scripted_server server;
    auto connection = server.connect();
    peri_stat_manager manager(connection);
    std::vector<const char*> none;
    expect_requests(server, command,
                    {{[&] { return manager.get_all_thermal(nullptr); }, {19}},
                     {[&] { return manager.get_cooling_0(nullptr); }, {1}},
                     {[&] { return manager.get_cooling_1(nullptr); }, {2}},
                     {[&] { return manager.get_thermal(3, nullptr); }, {3}},
                     {[&] { return manager.get_thermal(-1, nullptr); }, {-1}},
                     {[&] { return manager.get_ion_info(nullptr); }, {24}},
                     {[&] { return manager.get_meminfo(nullptr); }, {26}},
                     {[&] { return manager.get_block_usage(nullptr); }, {20}},
                     {[&] { return manager.get_partition_info(none, nullptr); }, {25}, {"\0", 1}}});
}

TEST(peri, asks_for_the_partitions_that_fit_into_the_request) {
    const std::string longest(1021, 'x');
    const std::string half(510, 'h');
    const struct {
        std::vector<std::string> names;
        std::string payload;
    } cases[] = {
        {{"system", "", "userdata"}, "\3system  userdata "},
        {{longest}, "\1" + longest + " "},
        {{longest + "x"}, "\1"},
        {{longest, ""}, "\2" + longest + " "},
        {{std::string(5000, 'x'), "a"}, "\2"},
        // 1 + 511 + 511 is the bound itself; what comes after the first that does not fit is lost
        // even if it would.
        {{half, half, ""}, "\3" + half + " " + half + " "},
        {{half, half + "h", "a"}, "\3" + half + " "},
        {std::vector<std::string>(256, "a"), std::string(1, '\0') + repeated("a ", 256)},
        {std::vector<std::string>(300, "part"), "\x2c" + repeated("part ", 204)},
        {std::vector<std::string>(300, ""), "\x2c" + std::string(300, ' ')},
    };
    scripted_server server;
    auto connection = server.connect();
    peri_stat_manager manager(connection);
    for (const auto& c : cases) {
        std::vector<const char*> names;
        for (const std::string& name : c.names)
            names.push_back(name.c_str());
        expect_requests(
            server, command,
            {{[&] { return manager.get_partition_info(names, nullptr); }, {25}, c.payload}});
    }
}

TEST(peri, reports_every_answer) {
    offline<peri_stat_manager> m;
    auto th = [&m](const std::string& text) { return report(m, m.th_parser, 3, text); };
    auto co = [&m](const std::string& text) { return report(m, m.co_parser, 1, text); };
    auto all = [&m](const std::string& bytes) { return report(m, m.all_th_parser, 19, bytes); };
    auto ion = [&m](const std::string& bytes) { return report(m, m.ion_parser, 24, bytes); };
    auto part = [&m](const std::string& bytes) { return report(m, m.part_parser, 25, bytes); };
    const std::string too_large = "18446744073709551616";
    const std::string largest = "18446744073709551615";
    const std::string name16(16, 'n');
    const std::string name32(32, 'n');
    const struct {
        std::string report;
        std::string expected;
    } cases[] = {
        // Single values: each case starts from the value of the one before.
        {th("45000\n"), "45000"},
        {th(""), "45000"},
        {th(" \n\t\n"), "45000"},
        {th("30000\n31000"), "31000"},
        {th("30000\nhot"), "0"},
        {th("hot\n \t31000 mC"), "31000"},
        {th(too_large), largest},
        {th("-1"), largest},
        {co("3"), "3"},
        {co("\n"), "3"},
        {co("x"), "0"},
        // The list begins anew with each answer, its first value at 0.
        {all({"\0\0", 2}), "Thermal(mC):    Cooling_stat:   "},
        {all(thermals(2, 3, {"1", "2\n", "45000\n", "46000", "47000"})),
         "Thermal(mC):    45000  46000  47000  Cooling_stat:   1      2      "},
        {all(thermals(3, 3, {"", "5", "", "", "7\n8", "x"})),
         "Thermal(mC):    0      8      0      Cooling_stat:   0      5      5      "},
        {all(thermals(1, 2, {"4"})), "Thermal(mC):    0      0      Cooling_stat:   4      "},
        {all(thermals(0, 2, {"12345678", "1"})), "Thermal(mC):    123456781      Cooling_stat:   "},
        {ion({"\0", 1}), ""},
        {ion(counted(1, heap("carveout", 0))), "carveout: 0.0B"},
        {ion(counted(2, heap(name16, 1536) + heap("cma", 1 << 30))), name16 + ": 1.5K, cma: 1.0G"},
        {part({"\0", 1}), "Partition Avail/Size: "},
        {part(counted(2, partition("system", 1, 3, 512) + partition(name32, 2048, 4096, 4096))),
         "Partition Avail/Size: system: 512.0B/1.5K, " + name32 + ": 8.0M/16.0M"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.report, c.expected);
}

TEST(peri, reports_block_rates_between_two_answers) {
    constexpr std::uint64_t big = 1ULL << 63;
    const std::string two = "Device         sda            sdb            \nRd/Wr(KB/s) ";
    const std::string one = "Device         " + std::string(32, 'd') + "\nRd/Wr(KB/s) ";
    const std::string name(32, 'd');
    const struct {
        timeval time;
        std::string payload;
        std::string expected;
    } answers[] = {
        {{100, 0},
         counted(2, device("sda", 10, 20) + device("sdb", 0, 0)),
         two + "      0/0            0/0      "},
        {{102, 0},
         counted(2, device("sda", 1010, 21) + device("sdb", 0, 3)),
         two + "    500/0.5          0/1.5    "},
        // Six significant digits, and fields that are too narrow.
        {{103, 0},
         counted(2, device("sda", 1234567 + 1010, 30) + device("sdb", 1, 12345678)),
         two + "1.23457e+06/9            1/1.23457e+07"},
        // A counter that runs backwards wraps.
        {{104, 500000},
         counted(2, device("sda", 0, 30) + device("sdb", 1, 12345677)),
         two + "1.22978e+19/0            0/1.22978e+19"},
        {{104, 501999},
         counted(2, device("sda", 1, 30) + device("sdb", 1, 12345677)),
         two + "   1000/0            0/0      "},
        // Another number of devices: rates start again.
        {{105, 0}, counted(1, device(name, 7, big)), one + "      0/0      "},
        {{106, 0}, counted(1, device(name, 8, big + 512)), one + "      1/512    "},
        {{107, 0}, counted(0, ""), "Device         \nRd/Wr(KB/s) "},
        {{108, 0}, counted(0, ""), "Device         \nRd/Wr(KB/s) "},
    };
    offline<peri_stat_manager> manager;
    for (const auto& answer : answers) {
        EXPECT_EQ(report(manager, manager.block_parser, 20, answer.payload, answer.time),
                  answer.expected);
        manager.block_parser->last_time = answer.time;
    }

    // No time between two answers: whatever the platform prints for the quotients.
    const std::string same = counted(1, device("sda", 1, 5));
    report(manager, manager.block_parser, 20, same, {109, 0});
    manager.block_parser->last_time = {110, 999};
    const std::string none =
        report(manager, manager.block_parser, 20, counted(1, device("sda", 2, 5)), {110, 1998});
    std::ostringstream nan;
    const volatile float zero = 0;
    nan << std::left << std::setw(7) << zero / zero;
    EXPECT_EQ(none, "Device         sda            \nRd/Wr(KB/s)     inf/" + nan.str());
}

TEST(peri, times_block_rates_from_the_last_answer_that_came) {
    scripted_server server;
    auto connection = server.connect();
    peri_stat_manager manager(connection);
    auto last_time_us = [&] {
        const timeval& t = manager.block_parser->last_time;
        return static_cast<unsigned long>(t.tv_sec * 1000000 + t.tv_usec);
    };
    server.next({packet(20, counted(1, device("sda", 1, 2)))});
    EXPECT_EQ(manager.get_block_usage(nullptr), 0);
    const unsigned long received = connection->get_recv_time_us();
    EXPECT_EQ(last_time_us(), received);

    log_capture log;
    server.next({error_packet(20, -19)});
    std::ostringstream out;
    EXPECT_EQ(manager.get_block_usage(&out), -19);
    EXPECT_EQ(last_time_us(), received);
    EXPECT_EQ(manager.block_parser->stats->stat[0].wr_kb, 2U);
    EXPECT_EQ(log.lines(), split("6 MONCL_COMM: Handle request return -19|"
                                 "6 MONCL_PERI: Receive message error with -19"));
    EXPECT_EQ(out.str(), "");
}

TEST(peri, takes_only_the_records_the_payload_holds) {
    std::mt19937 random(4);
    payload_area payload;
    peri_stat_manager m;
    block_stat_parser& block = *m.block_parser;
    auto starts_with = [&](std::size_t size, const void* records) {
        return std::memcmp(records, payload.data() + 1, size) == 0;
    };
    for (std::size_t i = 0; i < 2000; ++i) {
        payload.randomize(random);
        const std::size_t count = payload.data()[0] = static_cast<unsigned char>(i);
        block.block_stat_parse(payload.data());
        m.part_parser->partition_parse(payload.data());
        m.ion_parser->parse_ion_info(payload.data());
        m.th_parser->parse_thermal(payload.data());
        m.co_parser->parse_cooling(payload.data());
        ASSERT_EQ(m.all_th_parser->parse_all(payload.data()), 1);
        ASSERT_EQ(block.stats->num, std::min<std::size_t>(count, 170));
        ASSERT_EQ(m.part_parser->part_vec.size(), std::min<std::size_t>(count, 127));
        ASSERT_EQ(m.ion_parser->ion_vec.size(), count);
        ASSERT_EQ(m.all_th_parser->all_co.size(), count);
        ASSERT_EQ(m.all_th_parser->all_th.size(), payload.data()[1]);
        ASSERT_TRUE(starts_with(block.stats->num * sizeof(block_stat), block.stats->stat));
        if (count > 0) {
            ASSERT_TRUE(starts_with(std::min<std::size_t>(count, 127) * sizeof(part_info),
                                    m.part_parser->part_vec.data()));
            ASSERT_TRUE(starts_with(count * sizeof(ion_info), m.ion_parser->ion_vec.data()));
        }
        // Samples cut to the same length are of the same devices as far as can be told.
        ASSERT_EQ(block.last_stats != nullptr, count > 170);
    }

    // Texts that end with the payload, and none behind it.
    std::string texts = "\2\xff" + std::string(answer_payload_max - 4, ' ') + "42";
    all_thermal_parser all;
    EXPECT_EQ(all.parse_all(payload_area(texts).data()), 1);
    EXPECT_EQ(all.all_co, (std::vector<std::uint64_t>{42, 42}));
    EXPECT_EQ(all.all_th, std::vector<std::uint64_t>(255, 0));

    EXPECT_THROW(thermal_parser().parse_thermal(nullptr), std::logic_error);
    EXPECT_THROW(cooling_parser().parse_cooling(nullptr), std::logic_error);
}
