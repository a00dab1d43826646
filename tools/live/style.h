// What parts of the live screen look like, apart from any terminal. The colours of each look stand
// in one table in terminal.cpp.
#ifndef MONCL_TOOLS_LIVE_STYLE_H
#define MONCL_TOOLS_LIVE_STYLE_H

#include <string>
#include <string_view>
#include <vector>

namespace tools::live {

/// What a piece of text is, which decides its colour.
enum class look : unsigned char {
    plain,
    dim,    ///< frames and what is of little weight
    title,  ///< the header line and the headings of tables
    name,   ///< what a figure belongs to
    user,   ///< time in user mode; memory of processes
    nice,   ///< time in user mode at low priority
    system, ///< time in the kernel; memory of the kernel
    iowait, ///< time waiting for I/O; memory of files
    steal,  ///< time given to others
    graph,
    warning, ///< a figure to keep an eye on
    alarm    ///< a figure that is wrong, or a server that is away
};
inline constexpr int look_count = static_cast<int>(look::alarm) + 1;

/// Text of one look.
struct span {
    std::string text; ///< valid UTF-8 without control characters
    look how = look::plain;
};

/// One line of the screen; what does not fit is cut off at the right.
using styled_line = std::vector<span>;

/// What is drawn with: Unicode's blocks and dots, or plain ASCII.
struct drawing_set {
    bool unicode = true;
};

} // namespace tools::live

#endif
