// Reading the header Accept.
#include "accept.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

namespace exporter {

namespace {
// The text up to the next @p end, without blanks around it; it is taken off @p rest.
std::string_view next_piece(std::string_view& rest, char end) {
    const std::size_t size = std::min(rest.find(end), rest.size());
    std::string_view piece = rest.substr(0, size);
    rest.remove_prefix(std::min(size + 1, rest.size()));
    while (!piece.empty() && std::isspace(static_cast<unsigned char>(piece.front())) != 0)
        piece.remove_prefix(1);
    while (!piece.empty() && std::isspace(static_cast<unsigned char>(piece.back())) != 0)
        piece.remove_suffix(1);
    return piece;
}

std::string lower(std::string_view text) {
    std::string made(text);
    for (char& c : made)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return made;
}

/// One of the media ranges of the header.
struct range {
    std::string type;
    std::string version; ///< empty: any
    double q = 1;
};

range read_range(std::string_view text) {
    range made{lower(next_piece(text, ';')), {}, 1};
    while (!text.empty()) {
        const std::string parameter = lower(next_piece(text, ';'));
        if (parameter.rfind("version=", 0) == 0)
            made.version = parameter.substr(8);
        if (parameter.rfind("q=", 0) != 0)
            continue;
        const char* end = parameter.data() + parameter.size();
        const auto read = std::from_chars(parameter.data() + 2, end, made.q);
        if (read.ec != std::errc() || read.ptr != end || !(made.q >= 0 && made.q <= 1))
            made.q = 0;
    }
    return made;
}
} // namespace

tools::metrics_form preferred_form(const std::string& accept) {
    double openmetrics = 0;
    double older = 0;
    for (std::string_view rest = accept; !rest.empty();) {
        const range each = read_range(next_piece(rest, ','));
        if (each.type == "application/openmetrics-text" &&
            (each.version.empty() || each.version == "1.0.0"))
            openmetrics = std::max(openmetrics, each.q);
        if (each.type == "text/plain" || each.type == "text/*" || each.type == "*/*")
            older = std::max(older, each.q);
    }
    return openmetrics > 0 && openmetrics >= older ? tools::metrics_form::openmetrics
                                                   : tools::metrics_form::prometheus;
}

const char* content_type(tools::metrics_form form) {
    return form == tools::metrics_form::openmetrics
               ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
               : "text/plain; version=0.0.4; charset=utf-8";
}

} // namespace exporter
