// What the fuzz targets share.
#include "fuzz_support.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <streambuf>
#include <zmq.h>

namespace fuzz {

namespace {
std::vector<const target*>& registered() {
    static std::vector<const target*> all;
    return all;
}

class dropping_buffer : public std::streambuf {
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};
} // namespace

target::target(const char* its_name, void (*its_run)(const std::uint8_t*, std::size_t))
    : name(its_name), run(its_run) {
    registered().push_back(this);
}

const std::vector<const target*>& all_targets() {
    return registered();
}

std::ostream& report() {
    static dropping_buffer dropped;
    static std::unique_ptr<std::ostream> stream;
    stream = std::make_unique<std::ostream>(&dropped);
    return *stream;
}

std::uint8_t input::byte() {
    const std::string_view one = bytes(1);
    return one.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(one[0]);
}

std::uint16_t input::two_bytes() {
    const unsigned low = byte();
    return static_cast<std::uint16_t>(low | static_cast<unsigned>(byte()) << 8);
}

std::string_view input::bytes(std::size_t size) {
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(taken.size());
    return taken;
}

std::string_view input::text() {
    const std::string_view taken = bytes(std::min(rest_.find('\0'), rest_.size()));
    bytes(1);
    return taken;
}

void expect(bool held, const char* what) {
    if (held)
        return;
    std::fprintf(stderr, "difference: %s\n", what);
    std::abort();
}

void last_number(const std::string& text, std::uint64_t& number) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        std::istringstream(line) >> number;
}

int receive(void* socket, void* buffer, std::size_t size) {
    int n = -1;
    do
        n = zmq_recv(socket, buffer, size, 0);
    while (n == -1 && zmq_errno() == EINTR);
    return n;
}

int bound_port(void* socket) {
    char endpoint[64];
    std::size_t size = sizeof endpoint;
    expect(zmq_getsockopt(socket, ZMQ_LAST_ENDPOINT, endpoint, &size) == 0, "no port");
    return std::atoi(std::strrchr(endpoint, ':') + 1);
}

} // namespace fuzz
