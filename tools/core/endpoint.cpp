// Reading endpoints.
#include "endpoint.h"

#include <algorithm>
#include <charconv>

namespace tools {

std::string read_endpoint(const std::string& text, endpoint& at) {
    // Several colons without brackets are an IPv6 address without a port.
    if (text.find('[') == text.npos && std::count(text.begin(), text.end(), ':') > 1) {
        at.host = "[" + text + "]";
        at.port = endpoint::default_port;
        return {};
    }
    const std::size_t bracket = text.find(']');
    const std::size_t colon = text.find(':', bracket == text.npos ? 0 : bracket);
    at.host = text.substr(0, colon);
    at.port = endpoint::default_port;
    if (at.host.empty() || (text.front() == '[') != (bracket != text.npos) ||
        (bracket != text.npos && bracket + 1 != at.host.size()) || at.host == "[]")
        return "needs HOST, HOST:PORT or [IPV6]:PORT";
    if (colon == text.npos)
        return {};
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data() + colon + 1, end, at.port);
    if (read.ec != std::errc() || read.ptr != end || at.port < 1 || at.port > 65535)
        return "needs a port from 1 to 65535 after the colon";
    return {};
}

} // namespace tools
