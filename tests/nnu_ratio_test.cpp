// Accelerator load: requests, texts, reports.
#include "log_capture.h"
#include "manager_support.h"
#include "nnu_ratio_manager.h"

TEST(nnu_ratio, sends_the_request_of_each_query) {
    scripted_server server;
    auto connection = server.connect();
    nnu_ratio_manager manager(connection);
    expect_requests(server, 0xAE03,
                    {{[&] { return manager.get_nnu0_ratio(nullptr); }, {1}},
                     {[&] { return manager.get_nnu1_ratio(nullptr); }, {2}},
                     {[&] { return manager.get_nnu_ratio_all(nullptr); }, {1}}});
}

TEST(nnu_ratio, reads_the_last_line_that_holds_anything) {
    struct comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new comma));
    const std::pair<const char*, float> texts[] = {
        {"37.5\n", 37.5F},      {"", 37.5F},     {" \n\n", 37.5F},
        {"1\n2.25 %\n", 2.25F}, {"3\n\n", 3.0F}, {"4\nidle", 0.0F},
        {"x\n-.5", -0.5F},      {"1e2", 100.0F}, {"1e99", std::numeric_limits<float>::max()},
        {"0x1p3", 0.0F}};
    nnu_ratio_parser parser;
    for (const auto& [text, load] : texts) {
        EXPECT_EQ(parser.parse_nnu_ratio(payload_area(text).data()), 1);
        EXPECT_EQ(parser.nnu_rat, load) << text;
    }
    std::locale::global(before);
    EXPECT_THROW(parser.parse_nnu_ratio(nullptr), std::logic_error);

    std::mt19937 random(7);
    payload_area payload;
    for (int i = 0; i < 300; ++i) {
        payload.randomize(random, split("1|9|.|e|-|\n| |inf|" + std::string(1, '\0')));
        ASSERT_EQ(parser.parse_nnu_ratio(payload.data()), 1);
    }
}

TEST(nnu_ratio, reports_a_line_for_a_core) {
    scripted_server server;
    auto connection = server.connect();
    nnu_ratio_manager manager(connection);
    std::ostringstream out;
    out << std::right << std::fixed << std::setprecision(2);
    for (const char* load : {"100", "5", "37.5", "12.3456789"})
        server.next_text(1, load);
    EXPECT_EQ(manager.get_nnu_ratio_all(&out), 0);
    EXPECT_EQ(manager.get_nnu0_ratio(&out), 0);
    EXPECT_EQ(manager.get_nnu1_ratio(&out), 0);
    EXPECT_EQ(manager.get_nnu1_ratio(&out), 0);
    EXPECT_EQ(out.str(), "NNU   Usage\nnnu0  100%\nnnu0  5  %\nnnu1  37.5%\nnnu1  12.3457%\n");

    log_capture log;
    out.str({});
    server.next({error_packet(1, -19)});
    EXPECT_EQ(manager.get_nnu_ratio_all(&out), -19);
    EXPECT_EQ(out.str(), "NNU   Usage\n");
    EXPECT_TRUE(log.has("6 MONCL_NNU: Receive message error with -19"));
}
