// Camera pipes: frames in and out of each block that they pass, drops marked.
#include "block.h"

#include "drawing.h"

#include <algorithm>
#include <string>

namespace tools::live {
namespace {

/// A pipe's way through one block.
struct passage {
    std::string block;
    std::string input;
    std::string output;
    bool drops; ///< fewer frames leave than enter
};

/// One pipe.
struct pipe {
    std::string name;
    std::vector<passage> way; ///< in the order in which frames take it
};

std::vector<pipe> read_pipes(const latest_sample& rates) {
    std::vector<pipe> pipes;
    for (std::size_t i = 0; i < rates.figures.rows.size(); ++i) {
        const std::string name = rates.text(i, "pipe");
        auto known = std::find_if(pipes.begin(), pipes.end(),
                                  [&](const pipe& each) { return each.name == name; });
        if (known == pipes.end())
            known = pipes.insert(pipes.end(), pipe{name, {}});
        const auto in = rates.number(i, "input_fps");
        const auto out = rates.number(i, "output_fps");
        known->way.push_back({rates.text(i, "block"), rates.text(i, "input_fps"),
                              rates.text(i, "output_fps"), in && out && *out < *in});
    }
    return pipes;
}

void add_rates(styled_line& to, const std::string& in, const std::string& out, bool drops) {
    to.push_back({in + ">" + out, drops ? look::alarm : look::plain});
    if (drops)
        to.push_back({"!", look::alarm});
}

// From the first block's input to the last one's output.
styled_line short_form(const pipe& each) {
    styled_line item{{each.name + ":", look::dim}};
    const bool drops =
        std::any_of(each.way.begin(), each.way.end(), [](const passage& way) { return way.drops; });
    add_rates(item, each.way.front().input, each.way.back().output, drops);
    return item;
}

styled_line long_form(const pipe& each) {
    styled_line item{{"pipe " + padded(each.name, 2), look::dim}};
    for (const passage& way : each.way) {
        item.push_back({" " + way.block + " ", look::dim});
        add_rates(item, way.input, way.output, way.drops);
        item.push_back({way.drops ? "" : " ", look::plain});
    }
    return item;
}

std::vector<styled_line> draw(const block_request& what) {
    const latest_sample* rates = what.board.find("fps");
    if (rates == nullptr)
        return {};
    std::vector<styled_line> items;
    for (const pipe& each : read_pipes(*rates))
        items.push_back(what.rows > 2 ? long_form(each) : short_form(each));
    return flow("Pipe", items, what.width, what.rows);
}

const block_registration registered({"pipes", 50, {1, 2, 4}, draw});

} // namespace
} // namespace tools::live
