// The number of every request: a command for each manager, and its sub-commands. Client and server
// take them from here; docs/protocol.md lists them.
#ifndef MONCL_REQUEST_NUMBERS_H
#define MONCL_REQUEST_NUMBERS_H

/// The client-id handshake.
inline constexpr int client_id_command = 0xEAEA;
/// Sub-commands of `client_id_command`.
namespace client_id_request {
inline constexpr int ask = 1;
inline constexpr int give_back = 2;
} // namespace client_id_request

/// Queries of `sysinfo_manager`.
inline constexpr int system_command = 0xAE01;
/// Sub-commands of `system_command`.
namespace system_request {
inline constexpr int cpu_frequency = 1; ///< of CPU 0; the next numbers ask for CPU 1, 2 ...
inline constexpr int cpu_frequency_count = 8;
inline constexpr int possible_cpus = 9;
inline constexpr int version = 10;
} // namespace system_request

/// Queries of `cpu_stat_manager`.
inline constexpr int cpu_command = 0xAE02;
/// Sub-commands of `cpu_command`.
namespace cpu_request {
inline constexpr int usage = 1;
inline constexpr int process_status = 3;
inline constexpr int process_io = 4;
inline constexpr int busiest_processes = 8; ///< a payload of 10 says that this client leaves
inline constexpr int interrupts = 9;
inline constexpr int enable_counters = 10;
inline constexpr int read_counters = 11;
inline constexpr int disable_counters = 12;
} // namespace cpu_request

/// Queries of `nnu_ratio_manager`.
inline constexpr int accelerator_command = 0xAE03;
/// Sub-commands of `accelerator_command`.
namespace accelerator_request {
inline constexpr int load = 1; ///< of core 0; the next number asks for core 1
inline constexpr int load_count = 2;
} // namespace accelerator_request

/// Queries of `peri_stat_manager`.
inline constexpr int peripheral_command = 0xAE06;
/// Sub-commands of `peripheral_command`.
namespace peripheral_request {
inline constexpr int cooling = 1; ///< device 0; the next number asks for device 1
inline constexpr int cooling_count = 2;
inline constexpr int thermal = 3; ///< zone 0; the next numbers ask for zone 1, 2 ...
inline constexpr int thermal_count = 16;
inline constexpr int all_thermal = 19;
inline constexpr int block_devices = 20;
inline constexpr int ion_heaps = 24;
inline constexpr int partitions = 25;
inline constexpr int memory = 26;
} // namespace peripheral_request

/// Queries of `vio_info_manager`.
inline constexpr int video_command = 0xAE08;
/// Sub-commands of `video_command`. Each asks for the first instance; the next numbers ask for the
/// further ones.
namespace video_request {
inline constexpr int isp_information = 1; ///< 2 instances
inline constexpr int isp_rates = 3;       ///< 2 instances
inline constexpr int cim_rates = 5;       ///< 2 instances
inline constexpr int pym_rates = 7;       ///< 3 instances
inline constexpr int gdc_rates = 10;
inline constexpr int pym_statistics = 11; ///< 3 instances
inline constexpr int delay = 14;
} // namespace video_request

/// Queries of `net_stat_manager`.
inline constexpr int network_command = 0xAE09;
/// Sub-commands of `network_command`.
namespace network_request {
inline constexpr int add_process = 1;
inline constexpr int remove_process = 2;
inline constexpr int start = 3;
inline constexpr int bandwidth = 4;
inline constexpr int exit = 5;
} // namespace network_request

/// Queries about the server itself, which `monsrv` answers.
inline constexpr int server_command = 0xAE40;
/// Sub-commands of `server_command`.
namespace server_request {
inline constexpr int counts = 1;
} // namespace server_request

#endif
