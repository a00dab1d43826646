// Asking a peri_stat_manager again and again.
#include "peripherals.h"

namespace tools {

int repeat_query(session& asking, const schedule& when, const peripheral_query& query,
                 bool compares) {
    peri_stat_manager manager(asking.new_connection());
    const auto ask = [&](std::ostream* out) {
        const int code = query(manager, out);
        if (code >= 0 && out != nullptr)
            *out << "\n";
        return code;
    };
    return asking.repeat(when, {ask, {manager.client}, compares});
}

} // namespace tools
