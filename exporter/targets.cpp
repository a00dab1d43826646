// Comparing targets with patterns.
#include "targets.h"

#include <stdexcept>

namespace exporter {

namespace {
bool is_alphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// A text that a transport would read as more than a host is not a host.
bool is_host(const std::string& text) {
    for (const char c : text)
        if (!is_alphanumeric(c) && std::string("-_.:[]").find(c) == std::string::npos)
            return false;
    return !text.empty();
}
} // namespace

bool fits(const std::string& pattern, const std::string& text) {
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t star = pattern.npos; // the last one met, and where it stopped in the text
    std::size_t stopped = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            stopped = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (star != pattern.npos && (is_alphanumeric(text[stopped]) ||
                                            text[stopped] == '-' || text[stopped] == '_')) {
            p = star + 1; // lets it stand for one character more
            t = ++stopped;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

allowed_targets::allowed_targets(const std::vector<std::string>& patterns) {
    for (const std::string& each : patterns) {
        const std::size_t bracket = each.find(']');
        const bool has_port = each.find(':', bracket == each.npos ? 0 : bracket) != each.npos;
        const std::string whole =
            has_port ? each : each + ":" + std::to_string(tools::endpoint::default_port);
        std::string shape = whole;
        for (char& c : shape)
            c = c == '*' ? '1' : c;
        tools::endpoint at;
        if (!is_host(shape) || !tools::read_endpoint(shape, at).empty())
            throw std::runtime_error(
                "--allow-target " + each +
                ": needs HOST[:PORT], in which * stands for letters and digits");
        patterns_.push_back(whole);
    }
}

std::optional<tools::endpoint> allowed_targets::find(const std::string& text) const {
    tools::endpoint at;
    if (!is_host(text) || !tools::read_endpoint(text, at).empty())
        return std::nullopt;
    for (const std::string& each : patterns_)
        if (fits(each, at.text()))
            return at;
    return std::nullopt;
}

} // namespace exporter
