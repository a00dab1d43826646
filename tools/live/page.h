// The live screen's page: what is shown for which state, as a canvas. Knows no terminal.
#ifndef MONCL_TOOLS_LIVE_PAGE_H
#define MONCL_TOOLS_LIVE_PAGE_H

#include "board_view.h"
#include "canvas.h"

#include <memory>
#include <string>
#include <vector>

namespace tools::live {

/// A block that can fill the screen by itself: the table of one subject.
struct full_view {
    char key;            ///< that opens it; 0: only the tabulator does
    const char* subject; ///< its name
};
extern const std::vector<full_view> full_views;

/// What somebody has chosen to see.
struct page_state {
    std::size_t board = 0; ///< index of the board shown
    bool overview = false; ///< a line for each board instead
    std::size_t view = 0;  ///< 0: the page; else 1 + index in `full_views`
    bool every_cpu = true; ///< each CPU rather than the total
    bool paused = false;
    bool replays = false; ///< the boards are those of a recording
    bool playing = false; ///< which goes on by itself
    bool help = false;
    bool typing_filter = false;
    std::string filter;                     ///< rows of tables that hold this text; empty: all
    std::string order_by = "usage_percent"; ///< of the processes
    std::size_t scroll = 0;                 ///< rows of the table above the screen
    double interval = 1;                    ///< seconds
    std::string message;                    ///< latest message of the session
};

/// The subjects that a state needs.
std::vector<const subject*> subjects_for(const page_state& state);

/// Rows of the table on the screen, for paging.
struct table_extent {
    std::size_t rows = 0;    ///< of the table
    std::size_t visible = 0; ///< on the screen
};

/// Draws the page for @p boards, at least one, onto @p to.
/// @param clock the time of day as it is to be shown
/// @return how much of the table at its end can be seen
table_extent draw_page(canvas& to, const std::vector<std::unique_ptr<board_view>>& boards,
                       const page_state& state, drawing_set with, const std::string& clock,
                       board_view::clock::time_point now);

} // namespace tools::live

#endif
