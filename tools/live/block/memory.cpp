// Memory as one bar.
#include "block.h"

#include "drawing.h"

namespace tools::live {
namespace {

std::vector<styled_line> draw(const block_request& what) {
    const latest_sample* mem = what.board.find("mem");
    if (mem == nullptr)
        return {};
    const auto total = mem->number(0, "total_bytes");
    std::vector<std::pair<double, look>> shares;
    for (const auto& [field_name, how] : {std::pair("anon_bytes", look::user),
                                          {"slab_bytes", look::system},
                                          {"file_bytes", look::iowait}})
        shares.emplace_back(total ? mem->number(0, field_name).value_or(0) / *total : 0, how);
    const std::string figure =
        mem->text(0, "available_bytes") + " available of " + mem->text(0, "total_bytes");
    styled_line line{{"Mem ", look::name}};
    append(line, bar(shares, figure, what.width - 4));
    return {line};
}

const block_registration registered({"memory", 20, {1, 1, 1}, draw});

} // namespace
} // namespace tools::live
