// A block of the live screen: lines made from what is known of a board. A block is one file in
// tools/live/block/ that ends in one registration such as
//
//     const block_registration registered({"memory", 20, {1, 1, 1}, draw});
#ifndef MONCL_TOOLS_LIVE_BLOCK_H
#define MONCL_TOOLS_LIVE_BLOCK_H

#include "board_view.h"
#include "style.h"

#include <vector>

namespace tools::live {

/// What a block is drawn from, and the room that it has.
struct block_request {
    const board_view& board;
    int width;      ///< columns
    int rows;       ///< most lines
    bool every_cpu; ///< show each CPU rather than the total
    drawing_set with;
};

/// Heights of a screen. Blocks have a different number of lines at each.
enum class screen_height { low, middle, high };

/// One block.
struct block {
    const char* name;
    int place;       ///< on the page: the lowest first
    int rows_for[3]; ///< most lines, by screen_height
    /// Draws at most as many lines as asked for; none if there is nothing to show.
    std::vector<styled_line> (*draw)(const block_request& what);
};

/// All blocks, by their places.
std::vector<block> all_blocks();

/// Registers a block for as long as the program runs.
class block_registration {
public:
    explicit block_registration(const block& what);
};

} // namespace tools::live

#endif
