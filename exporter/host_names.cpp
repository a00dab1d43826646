// Comparing names of hosts.
#include "host_names.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <netinet/in.h>
#include <unistd.h>

namespace exporter {

namespace {
std::string lower(std::string name) {
    for (char& c : name)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return name;
}

bool is_address(const std::string& host) {
    in6_addr address{};
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        return inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &address) == 1;
    return inet_pton(AF_INET, host.c_str(), &address) == 1;
}
} // namespace

host_names::host_names(const std::vector<std::string>& more) : names_{"localhost"} {
    char own[256] = "";
    if (gethostname(own, sizeof own - 1) == 0)
        names_.insert(lower(own));
    for (const std::string& each : more)
        names_.insert(lower(each));
    names_.erase("");
}

bool host_names::has(const std::string& header) const {
    const std::size_t bracket = header.find(']');
    const std::size_t colon = header.find(':', bracket == header.npos ? 0 : bracket);
    const std::string port = colon == header.npos ? "0" : header.substr(colon + 1);
    if (port.find_first_not_of("0123456789") != port.npos)
        return false;
    const std::string host = lower(header.substr(0, colon));
    return is_address(host) || names_.count(host) != 0;
}

} // namespace exporter
