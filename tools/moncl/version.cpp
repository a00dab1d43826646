// Collecting what the console program was built with.
#include "version.h"

#include "build_facts.h"

#ifdef MONCL_RECORDING
#include <sqlite3.h>
#endif
#ifdef MONCL_LIVE_SCREEN
#include <curses.h>
#endif

namespace tools {

std::string version_text() {
    std::string text = build_facts::text_of("moncl") + "\nrecordings: ";
#ifdef MONCL_RECORDING
    text += std::string("SQLite ") + sqlite3_libversion();
#else
    text += "not built in";
#endif
    text += "\nlive screen: ";
#ifdef MONCL_LIVE_SCREEN
    text += curses_version();
#else
    text += "not built in";
#endif
    return text;
}

} // namespace tools
