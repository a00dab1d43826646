// Disks, file systems and network devices, a line of each.
#include "block.h"

#include "drawing.h"
#include "figure_text.h"

namespace tools::live {
namespace {

constexpr double nearly_full = 80; // percent
constexpr double full = 95;

std::string rate_text(const latest_sample& from, std::size_t row, const char* field_name) {
    const auto v = from.number(row, field_name);
    return v ? size_text(*v) : "-";
}

bool is_used(const latest_sample& from, std::size_t row,
             std::initializer_list<const char*> counters) {
    for (const char* each : counters)
        if (from.number(row, each).value_or(1) != 0)
            return true;
    return false;
}

std::vector<styled_line> draw_disks(const block_request& what) {
    const latest_sample* disks = what.board.find("disk");
    if (disks == nullptr)
        return {};
    std::vector<styled_line> items;
    for (std::size_t i = 0; i < disks->figures.rows.size(); ++i)
        if (is_used(*disks, i, {"read_bytes", "written_bytes"}))
            items.push_back({{disks->text(i, "device") + " ", look::dim},
                             {"r " + rate_text(*disks, i, "read_bytes_per_second") + " w " +
                                  rate_text(*disks, i, "written_bytes_per_second"),
                              look::plain}});
    return flow("Disk", items, what.width, what.rows);
}

std::vector<styled_line> draw_file_systems(const block_request& what) {
    const latest_sample* systems = what.board.find("part");
    if (systems == nullptr)
        return {};
    std::vector<styled_line> items;
    for (std::size_t i = 0; i < systems->figures.rows.size(); ++i) {
        const double used = systems->number(i, "used_percent").value_or(0);
        const look how = used >= full          ? look::alarm
                         : used >= nearly_full ? look::warning
                                               : look::plain;
        items.push_back({{systems->text(i, "filesystem") + " ", look::dim},
                         {systems->text(i, "used_percent") + "%", how},
                         {" of " + systems->text(i, "size_bytes"), look::plain}});
    }
    return flow("File", items, what.width, what.rows);
}

std::vector<styled_line> draw_network(const block_request& what) {
    const latest_sample* devices = what.board.find("net");
    if (devices == nullptr)
        return {};
    std::vector<styled_line> items;
    for (std::size_t i = 0; i < devices->figures.rows.size(); ++i)
        if (is_used(*devices, i, {"bytes"}))
            items.push_back({{devices->text(i, "device") + " ", look::dim},
                             {rate_text(*devices, i, "bytes_per_second") + "/s", look::plain}});
    return flow("Net ", items, what.width, what.rows);
}

const block_registration disks({"disks", 60, {1, 1, 2}, draw_disks});
const block_registration file_systems({"file systems", 61, {1, 1, 2}, draw_file_systems});
const block_registration network({"network", 62, {1, 1, 2}, draw_network});

} // namespace
} // namespace tools::live
