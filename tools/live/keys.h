// What keys do to the page.
#ifndef MONCL_TOOLS_LIVE_KEYS_H
#define MONCL_TOOLS_LIVE_KEYS_H

#include "page.h"

namespace tools::live {

/// Keys that are no characters.
enum key : int {
    key_none = -1, ///< nothing was typed
    key_escape = 27,
    key_enter = 0x110000, // beyond Unicode from here on
    key_backspace,
    key_up,
    key_down,
    key_left,
    key_right,
    key_page_up,
    key_page_down,
    key_home,
    key_end,
    key_tab,
    key_resize,
    key_lost ///< the terminal is gone
};

/// What a key asks for beyond a change of the page.
struct key_effect {
    bool leaves = false;
    bool interval_changed = false;
    bool subjects_changed = false;
    bool playing_changed = false;
    long steps = 0; ///< through a recording
};

/// Applies the key, a character or a `key`, to @p state.
/// @param boards how many there are
/// @param table  what of the table the screen shows now
key_effect apply_key(int typed, page_state& state, std::size_t boards, const table_extent& table);

} // namespace tools::live

#endif
