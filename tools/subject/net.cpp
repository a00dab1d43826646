// What every network device carries.
#include "board.h"
#include "subject.h"

#include <map>
#include <mutex>

namespace tools {
namespace {

// Bytes of an answer: two counts, a record for each device, one for each watched process.
constexpr std::size_t counts_size = 8;
constexpr std::size_t device_record_size = 24;

// The decoder keeps devices by position and never removes one. This takes all of them out after
// each answer, so that none is left over from a longer list.
std::map<int, net_stat> take_devices(net_stat_manager& network) {
    const std::lock_guard<std::mutex> lock(network.req_lock);
    auto& devices = network.parser->dev_result;
    std::map<int, net_stat> in_order(devices.begin(), devices.end());
    devices.clear();
    return in_order;
}

// A restarted server has forgotten that monitoring was started, and the connection does not show
// it, so it is started again now and then.
int query(board& server) {
    const int code = server.lately("net monitor started",
                                   [&server] { return server.network.start_net_monitor(); });
    return code < 0 ? code : server.network.get_bandwidth_stat(nullptr);
}

int ask(board& server, sample& into) {
    net_stat_manager& network = server.network;
    const int code = server.once("bandwidth", [&server] { return query(server); });
    const std::map<int, net_stat> devices = take_devices(network);
    if (code < 0)
        return code;
    for (const auto& [position, device] : devices)
        into.add(field_text(device.dev_name), device.total);
    const std::size_t processes = network.parser->pid_result.size() * sizeof(process_net_s);
    if ((devices.size() + 1) * device_record_size + processes + counts_size > answer_payload_max)
        into.notes.push_back("the server names at most " + std::to_string(devices.size()) +
                             " network devices");
    return code;
}

const subject_registration registered([] {
    subject net{
        "net",
        "network",
        "What every network device carries",
        {label("device", "Device", "Name of the network device"),
         counter("bytes", unit::bytes, "Bytes received and sent").column("carried", 3),
         rate("bytes_per_second", unit::bytes_per_second, "Bytes received and sent in a second")
             .per_second_of("bytes")
             .column("kB/s")},
        [](const selection&) -> asker { return ask; }};
    net.library_report = [](board& server, std::ostream& out) {
        const int code = server.network.start_net_monitor();
        return code < 0 ? code : server.network.get_bandwidth_stat(&out);
    };
    net.place = 60;
    net.summary_rows = 6;
    return net;
}());

} // namespace
} // namespace tools
