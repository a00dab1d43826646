// What the managers' constructors throw when there is no way to the server.
#include "log_capture.h"
#include "net_stat_manager.h"
#include "nnu_ratio_manager.h"
#include "peri_stat_manager.h"
#include "vio_info_manager.h"

#include <gtest/gtest.h>

namespace {
template<class Manager>
void expect_failure(const std::string& text) {
    constexpr int no_port = -1;
    auto message = [](auto construct) -> std::string {
        try {
            construct();
        } catch (const char* thrown) {
            return thrown;
        }
        return "nothing";
    };
    const auto connection = std::make_shared<client_comm>("127.0.0.1", no_port);
    log_capture log;
    EXPECT_EQ(message([] { Manager("127.0.0.1", no_port); }), text);
    EXPECT_EQ(message([&] { Manager{connection}; }), text);
    const std::string refused = "6 MONCL_COMM: zmq_connect error, Invalid argument";
    EXPECT_EQ(log.lines(), (std::vector<std::string>{refused, refused}));
    EXPECT_EQ(connection.use_count(), 1);
}
} // namespace

TEST(manager_connect, fails_with_the_managers_name) {
    expect_failure<peri_stat_manager>("PERI connect to server failed");
    expect_failure<net_stat_manager>("NET connect to server failed");
    expect_failure<nnu_ratio_manager>("NNU connect to server failed");
    expect_failure<vio_info_manager>("VIO connect to server failed");
}

TEST(manager_connect, queries_without_a_connection_fail) {
    log_capture log;
    EXPECT_EQ(peri_stat_manager().get_meminfo(nullptr), -2);
    EXPECT_EQ(net_stat_manager().add_net_monitor_process(1), -2);
    EXPECT_EQ(nnu_ratio_manager().get_nnu0_ratio(nullptr), -2);
    EXPECT_EQ(vio_info_manager().get_isp_info(), -2);
    for (const char* tag : {"PERI", "NET", "NNU", "VIO"})
        EXPECT_TRUE(log.has(std::string("6 MONCL_") + tag + ": Send message error with -2")) << tag;
}
