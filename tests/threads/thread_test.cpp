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

namespace {
using query = std::function<int(std::ostream*)>;

// Lets two threads ask each manager all its queries, all managers at once.
// Returns how many queries failed.
int failures(const std::vector<std::vector<query>>& managers) {
    std::vector<std::future<int>> threads;
    for (const auto& queries : managers)
        for (int i = 0; i < 2; ++i)
            threads.push_back(std::async(std::launch::async, [&queries] {
                std::ostringstream out;
                int failed = 0;
                for (int round = 0; round < 10; ++round)
                    for (const query& ask : queries)
                        failed += ask(&out) < 0;
                return failed;
            }));
    int all = 0;
    for (auto& failed : threads)
        all += failed.get();
    return all;
}
} // namespace

TEST(threads, query_all_managers_at_once_by_two_each) {
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
    const cout_capture printed; // by one manager at a time: standard output has no lock
    cpus.add_io_monitor_process(getpid());
    const auto none = [](auto...) { return 0; }; // where a host may have nothing to answer with
    const int result = failures(
        {{[&](auto out) { return system.get_cpu_possible(out); },
          [&](auto) { return system.get_version() - system.last_version().empty(); },
          [&](auto) { return none(system.get_cpu0_freq(), system.last_cpu_freq()); }},
         {[&](auto out) { return cpus.get_cpu_usage(out); },
          [&](auto) { return cpus.add_stat_monitor_process(1), 0; },
          [&](auto out) { return cpus.get_process_stat(out); },
          [&](auto out) { return cpus.get_process_io(out); },
          [&](auto out) { return cpus.get_process_all(0, out); },
          [&](auto out) { return cpus.get_interrupt(out); },
          [&](auto) { return none(cpus.enable_perf_mon()); },
          [&](auto out) { return none(cpus.get_perf_data(out), cpus.disable_perf_mon()); }},
         {[&](auto) { return net.start_net_monitor(); },
          [&](auto) { return none(net.add_net_monitor_process(1)); },
          [&](auto out) { return net.get_bandwidth_stat(out); },
          [&](auto) { return none(net.remove_net_monitor_process(1)); },
          [&](auto) { return net.exit_net_monitor(); }},
         {[&](auto out) { return peri.get_meminfo(out); },
          [&](auto out) { return peri.get_block_usage(out); },
          [&](auto out) {
              std::vector<const char*> all;
              return peri.get_partition_info(all, out);
          },
          [&](auto out) { return peri.get_all_thermal(out); },
          [&](auto out) { return none(peri.get_thermal(3, out), peri.get_cooling_0(out)); },
          [&](auto out) { return peri.get_ion_info(out); }},
         {[&](auto out) { return nnu.get_nnu_ratio_all(out); },
          [&](auto out) { return nnu.get_nnu1_ratio(out); }},
         {[&](auto out) { return vio.sort_all_vio_fps(out); },
          [&](auto) { return vio.get_cim_fps(); }, [&](auto) { return vio.get_isp_fps(); },
          [&](auto) { return vio.get_pym_fps(); }, [&](auto) { return vio.get_gdc_fps(); }}});
    EXPECT_EQ(result, 0);
    EXPECT_EQ(failures({{[&](auto) { return vio.get_isp_info(); },
                         [&](auto) { return vio.get_pym_stat(); },
                         [&](auto) { return vio.get_vio_delay(); }}}),
              0);
    for (const auto& connection :
         {system.client, cpus.client, peri.client, net.client, nnu.client, vio.client})
        close_at_once(*connection);
}
