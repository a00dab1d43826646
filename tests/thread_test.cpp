// All managers at once, from several threads, against one server.
#include "cpu_stat_manager.h"
#include "log_capture.h"
#include "net_stat_manager.h"
#include "nnu_ratio_manager.h"
#include "peri_stat_manager.h"
#include "running_server.h"
#include "scripted_server.h"
#include "sys_info_manager.h"
#include "vio_info_manager.h"

#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <sstream>

TEST(threads, query_all_managers_at_once) {
    monsrv::server_options options;
    options.simulate_board = true;
    running_server server(options);
    // The id is shared by the process: it is granted before the threads start.
    sysinfo_manager system("127.0.0.1", server.port());
    cpu_stat_manager cpus(server.connect());
    peri_stat_manager peri(server.connect());
    net_stat_manager net(server.connect());
    nnu_ratio_manager nnu(server.connect());
    vio_info_manager vio(server.connect());
    const cout_capture printed; // by one manager only: standard output has no lock
    cpus.add_stat_monitor_process(1);
    cpus.add_io_monitor_process(getpid());
    ASSERT_EQ(net.start_net_monitor() + net.add_net_monitor_process(getpid()), 0);
    using query = std::function<int(std::ostream*)>;
    const struct {
        int threads;                // where a manager is for one thread at a time, 1
        std::vector<query> queries; // 0 where a host may have nothing to answer with
    } users[] = {
        {2,
         {[&](auto out) { return system.get_cpu_possible(out); },
          [&](auto) { return system.get_version() - system.last_version().empty(); },
          [&](auto) { return system.get_cpu0_freq(), 0; }}},
        {3,
         {[&](auto out) { return cpus.get_cpu_usage(out); },
          [&](auto out) { return cpus.get_process_stat(out); },
          [&](auto out) { return cpus.get_process_io(out); },
          [&](auto out) { return cpus.get_process_all(0, out); },
          [&](auto out) { return cpus.get_interrupt(out); },
          [&](auto) { return cpus.enable_perf_mon(), 0; },
          [&](auto out) { return cpus.get_perf_data(out), 0; }}},
        {2,
         {[&](auto out) { return net.get_bandwidth_stat(out); },
          [&](auto) { return net.add_net_monitor_process(1); },
          [&](auto) { return net.remove_net_monitor_process(1); }}},
        {1,
         {[&](auto out) { return peri.get_meminfo(out); },
          [&](auto out) { return peri.get_block_usage(out); },
          [&](auto out) { return peri.get_all_thermal(out); },
          [&](auto out) { return peri.get_ion_info(out); }}},
        {1,
         {[&](auto out) { return nnu.get_nnu_ratio_all(out); },
          [&](auto out) { return nnu.get_nnu1_ratio(out); }}},
        {1,
         {[&](auto out) { return vio.sort_all_vio_fps(out); },
          [&](auto) { return vio.get_gdc_fps(); }}},
    };
    std::vector<std::future<int>> failures;
    for (const auto& user : users)
        for (int i = 0; i < user.threads; ++i)
            failures.push_back(std::async(std::launch::async, [&user] {
                std::ostringstream out;
                int failed = 0;
                for (int round = 0; round < 20; ++round)
                    for (const query& ask : user.queries)
                        failed += ask(&out) < 0;
                return failed;
            }));
    for (auto& failed : failures)
        EXPECT_EQ(failed.get(), 0);
    for (const auto& connection :
         {system.client, cpus.client, peri.client, net.client, nnu.client, vio.client})
        close_at_once(*connection);
}
