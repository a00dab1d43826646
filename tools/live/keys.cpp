// Applying keys.
#include "keys.h"

#include <algorithm>
#include <iterator>

namespace tools::live {

namespace {
constexpr double intervals[] = {0.1, 0.2, 0.5, 1, 2, 3, 5, 10, 30, 60, 300};

// The next step of the interval, up or down.
double step(double interval, bool longer) {
    if (longer) {
        const auto next = std::upper_bound(std::begin(intervals), std::end(intervals), interval);
        return next == std::end(intervals) ? interval : *next;
    }
    const auto next = std::lower_bound(std::begin(intervals), std::end(intervals), interval);
    return next == std::begin(intervals) ? interval : *std::prev(next);
}

void append_character(std::string& text, int typed) {
    const auto c = static_cast<unsigned>(typed);
    if (c < 0x80) {
        text += static_cast<char>(c);
    } else if (c < 0x800) {
        text += {static_cast<char>(0xC0 | c >> 6), static_cast<char>(0x80 | (c & 0x3F))};
    } else {
        text += {static_cast<char>(0xE0 | c >> 12), static_cast<char>(0x80 | (c >> 6 & 0x3F)),
                 static_cast<char>(0x80 | (c & 0x3F))};
    }
}

void remove_character(std::string& text) {
    while (!text.empty()) {
        const auto last = static_cast<unsigned char>(text.back());
        text.pop_back();
        if ((last & 0xC0) != 0x80)
            return;
    }
}

void type_filter(int typed, page_state& state) {
    if (typed == key_enter || typed == key_escape)
        state.typing_filter = false;
    if (typed == key_escape)
        state.filter.clear();
    else if (typed == key_backspace)
        remove_character(state.filter);
    else if (typed >= ' ' && typed != 0x7F && typed < 0x10000)
        append_character(state.filter, typed);
    state.scroll = 0;
}

bool scroll(int typed, page_state& state, const table_extent& table) {
    const std::size_t last = table.rows - std::min(table.rows, table.visible);
    const std::size_t page = std::max<std::size_t>(table.visible, 1);
    std::size_t to = std::min(state.scroll, last);
    switch (typed) {
    case key_up:
        to -= std::min<std::size_t>(to, 1);
        break;
    case key_down:
        ++to;
        break;
    case key_page_up:
        to -= std::min(to, page);
        break;
    case key_page_down:
        to += page;
        break;
    case key_home:
        to = 0;
        break;
    case key_end:
        to = last;
        break;
    default:
        return false;
    }
    state.scroll = std::min(to, last);
    return true;
}

bool order(int typed, page_state& state) {
    constexpr std::pair<char, const char*> orders[] = {{'P', "usage_percent"},
                                                       {'M', "rss_bytes"},
                                                       {'I', "io_bytes_per_second"},
                                                       {'N', "network_bytes_per_second"}};
    for (const auto& [letter, field_name] : orders) {
        if (typed != letter)
            continue;
        state.order_by = field_name;
        state.scroll = 0;
        return true;
    }
    return false;
}

void open_view(std::size_t view, page_state& state) {
    state.view = view;
    state.scroll = 0;
    state.overview = false;
    state.help = false;
}

// Whether the key opens another view.
bool choose_view(int typed, page_state& state) {
    if (typed == key_tab) {
        open_view((state.view + 1) % (full_views.size() + 1), state);
        return true;
    }
    for (std::size_t i = 0; i < full_views.size(); ++i) {
        if (full_views[i].key == 0 || typed != full_views[i].key)
            continue;
        open_view(i + 1, state);
        return true;
    }
    return false;
}

// All boards, then one after the other.
void next_board(page_state& state, std::size_t boards) {
    state.scroll = 0;
    if (boards < 2)
        return;
    if (state.overview) {
        state.overview = false;
        state.board = 0;
    } else if (++state.board == boards) {
        state.board = 0;
        state.overview = true;
    }
}
} // namespace

key_effect apply_key(int typed, page_state& state, std::size_t boards, const table_extent& table) {
    key_effect effect;
    state.message.clear();
    if (typed == key_lost) {
        effect.leaves = true;
        return effect;
    }
    if (state.typing_filter) {
        type_filter(typed, state);
        return effect;
    }
    const std::size_t view_before = state.view;
    switch (typed) {
    case 'q':
        effect.leaves = true;
        break;
    case 'h':
    case '?':
        state.help = !state.help;
        break;
    case '/':
        state.typing_filter = true;
        break;
    case ' ':
        if (state.replays) {
            state.playing = !state.playing;
            effect.playing_changed = true;
        } else {
            state.paused = !state.paused;
        }
        break;
    case key_left:
    case key_right:
        if (!state.replays)
            break;
        state.playing = false;
        effect.steps = typed == key_right ? 1 : -1;
        break;
    case '1':
        state.every_cpu = !state.every_cpu;
        break;
    case 'b':
        next_board(state, boards);
        break;
    case '+':
    case '-':
        state.interval = step(state.interval, typed == '+');
        effect.interval_changed = true;
        break;
    case key_escape:
        state.filter.clear();
        open_view(0, state);
        break;
    default:
        if (!scroll(typed, state, table) && !order(typed, state))
            choose_view(typed, state);
    }
    effect.subjects_changed = state.view != view_before;
    return effect;
}

} // namespace tools::live
