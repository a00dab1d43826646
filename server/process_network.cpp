// Matching the sockets that processes hold with the kernel's list of TCP sockets.
#include "process_network.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <limits>
#include <memory>
#include <string_view>
#include <unistd.h>

namespace monsrv {

namespace {
struct free_directory {
    void operator()(DIR* directory) const { closedir(directory); }
};

// Adds the inode that the descriptor `name` stands for, if it is a socket's.
// Returns 0, also for a descriptor that was closed meanwhile, or a negated errno.
int add_inode(int folder, const char* name, std::vector<std::uint32_t>& inodes) {
    constexpr std::string_view prefix = "socket:[";
    char link[64];
    const ssize_t size = readlinkat(folder, name, link, sizeof link - 1);
    if (size == -1)
        return errno == ENOENT ? 0 : -errno;
    link[size] = '\0';
    if (std::string_view(link).rfind(prefix, 0) == 0)
        inodes.push_back(
            static_cast<std::uint32_t>(std::strtoul(link + prefix.size(), nullptr, 10)));
    return 0;
}
} // namespace

int list_socket_inodes(int descriptors, std::chrono::steady_clock::time_point deadline,
                       std::vector<std::uint32_t>& inodes) {
    inodes.clear();
    if (descriptors < 0)
        return descriptors == -ENOENT ? -ESRCH : descriptors;
    const std::unique_ptr<DIR, free_directory> directory(fdopendir(descriptors));
    if (!directory) {
        close(descriptors);
        return -ENOMEM;
    }
    int error = 0;
    while (error == 0) {
        errno = 0;
        const dirent* each = readdir(directory.get());
        if (each == nullptr) {
            error = errno == ENOENT ? -ESRCH : -errno;
            break;
        }
        if (each->d_name[0] != '.')
            error = add_inode(dirfd(directory.get()), each->d_name, inodes);
        if (error == 0 && std::chrono::steady_clock::now() > deadline)
            error = -ETIMEDOUT;
    }
    std::sort(inodes.begin(), inodes.end());
    inodes.erase(std::unique(inodes.begin(), inodes.end()), inodes.end());
    return error;
}

void process_traffic::update(const std::vector<std::uint32_t>& inodes, bool all,
                             const std::vector<tcp_socket>& sockets) {
    for (const std::uint32_t inode : inodes) {
        if (const tcp_socket* socket = find_socket(sockets, inode); socket != nullptr) {
            seen_socket& seen =
                open_.try_emplace(socket->cookie, seen_socket{inode, 0}).first->second;
            seen.bytes = std::max(seen.bytes, socket->bytes);
        }
    }
    for (auto each = open_.begin(); all && each != open_.end();) {
        const auto& [cookie, seen] = *each;
        const tcp_socket* socket = find_socket(sockets, seen.inode);
        const bool held = std::binary_search(inodes.begin(), inodes.end(), seen.inode);
        if (socket != nullptr ? socket->cookie == cookie : held) {
            ++each;
            continue;
        }
        closed_ += seen.bytes;
        each = open_.erase(each);
    }
}

std::uint64_t process_traffic::total() const {
    std::uint64_t sum = closed_;
    for (const auto& each : open_)
        sum += each.second.bytes;
    return sum;
}

void socket_rates::update(std::vector<tcp_socket> sockets, clock::time_point now) {
    std::vector<old_socket> before;
    for (const tcp_socket& socket : sockets_)
        before.push_back({socket.cookie, socket.bytes, false});
    const auto by_cookie = [](const auto& a, const auto& b) { return a.cookie < b.cookie; };
    std::sort(before.begin(), before.end(), by_cookie);
    const auto listed = static_cast<std::ptrdiff_t>(before.size());
    for (const old_socket& old : before_)
        if (!old.missed &&
            !std::binary_search(before.begin(), before.begin() + listed, old, by_cookie))
            before.push_back({old.cookie, old.bytes, true});
    std::inplace_merge(before.begin(), before.begin() + listed, before.end(), by_cookie);
    if (time_ != clock::time_point{})
        seconds_ = std::chrono::duration<double>(now - time_).count();
    before_ = std::move(before);
    sockets_ = std::move(sockets);
    time_ = now;
}

std::uint64_t socket_rates::bytes_before(std::uint64_t cookie) const {
    const auto found = std::lower_bound(
        before_.begin(), before_.end(), cookie,
        [](const old_socket& old, std::uint64_t wanted) { return old.cookie < wanted; });
    return found != before_.end() && found->cookie == cookie ? found->bytes : 0;
}

double socket_rates::rate(const std::vector<std::uint32_t>& inodes) const {
    if (seconds_ <= 0)
        return std::numeric_limits<double>::quiet_NaN();
    std::uint64_t bytes = 0;
    for (const std::uint32_t inode : inodes) {
        const tcp_socket* socket = find_socket(sockets_, inode);
        if (socket == nullptr)
            continue;
        const std::uint64_t before = bytes_before(socket->cookie);
        bytes += socket->bytes - std::min(before, socket->bytes);
    }
    return static_cast<double>(bytes) / seconds_;
}

} // namespace monsrv
