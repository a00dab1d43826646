// Byte codecs, checksum, formatting and time helpers, and the cache of open files.
#include "common_func.h"

#include "platform_log.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

FILE* logFile = nullptr;

unsigned int crc32(unsigned char*, int, CRC_32) {
    return 0;
}

void u32_to_u8(unsigned int value, unsigned char* out) {
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<unsigned char>(value >> (8 * i));
}

unsigned int u8_to_u32(const unsigned char* in) {
    unsigned int value = 0;
    for (int i = 0; i < 4; ++i)
        value |= static_cast<unsigned int>(in[i]) << (8 * i);
    return value;
}

void u64_to_u8(unsigned long value, unsigned char* out) {
    for (int i = 0; i < 8; ++i)
        out[i] = static_cast<unsigned char>(value >> (8 * (7 - i)));
}

unsigned long u8_to_u64(const unsigned char* in) {
    unsigned long value = 0;
    for (int i = 0; i < 8; ++i)
        value = value << 8 | in[i];
    return value;
}

unsigned char reverse8(unsigned char data) {
    unsigned int reversed = 0;
    for (int i = 0; i < 8; ++i)
        reversed |= (data >> i & 1U) << (7 - i);
    return static_cast<unsigned char>(reversed);
}

unsigned int reverse32(unsigned int data) {
    unsigned int reversed = 0;
    for (int i = 0; i < 32; ++i)
        reversed |= (data >> i & 1U) << (31 - i);
    return reversed;
}

void show_by_unit(unsigned long val, std::ostream& os, unsigned char off) {
    constexpr std::string_view letters = "BKMGTPEZY";
    std::size_t unit = off;
    unsigned long tenths = 0;
    if (val >= 1024) {
        unsigned long remainder = 0;
        do {
            remainder = val & 1023;
            val >>= 10;
            ++unit;
        } while (val > 1023);
        tenths = (remainder * 10 + 512) >> 10;
        // The carry is not renormalised: 1023.96 K stays 1024.0K.
        if (tenths == 10) {
            tenths = 0;
            ++val;
        }
    }
    os << std::to_string(val) + '.' + static_cast<char>('0' + tenths) +
              letters[std::min(unit, letters.size() - 1)];
}

std::uint64_t time_diff(timeval& start, timeval& end) {
    return static_cast<std::uint64_t>((end.tv_sec - start.tv_sec) * 1000 +
                                      (end.tv_usec - start.tv_usec) / 1000);
}

std::uint64_t time_diff_us(timeval& start, timeval& end) {
    return static_cast<std::uint64_t>((end.tv_sec - start.tv_sec) * 1000000 +
                                      (end.tv_usec - start.tv_usec));
}

namespace {
// A new entry is added while the map holds at most this many.
constexpr std::size_t cache_limit = 300;

// A file open for reading, closed again unless somebody takes the descriptor.
class open_file {
public:
    explicit open_file(const std::string& path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    ~open_file() {
        if (fd_ >= 0)
            close(fd_);
    }
    open_file(const open_file&) = delete;
    open_file& operator=(const open_file&) = delete;

    int fd() const { return fd_; }
    int take() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

// One read call; what was read is NUL-terminated.
int read_once(int fd, unsigned char* buf, int len) {
    const auto n = static_cast<int>(read(fd, buf, static_cast<std::size_t>(len) - 1));
    if (n > 0)
        buf[n] = 0;
    return n;
}
} // namespace

std::unordered_map<std::string, std::shared_ptr<fd_cache>> file_cache::file_fds_cache;
std::mutex file_cache::fds_lock;

int file_cache::open_and_cache(const std::string& path) {
    std::lock_guard<std::mutex> lock(fds_lock);
    if (auto found = file_fds_cache.find(path); found != file_fds_cache.end())
        return found->second->fd;
    if (file_fds_cache.size() > cache_limit)
        return -EMFILE;
    open_file file(path);
    if (file.fd() < 0) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "open_and_cache no such file: %s\n",
                            path.c_str());
        return -2;
    }
    file_fds_cache.emplace(path, std::make_shared<fd_cache>(file.fd()));
    return file.take();
}

int file_cache::read_file(const std::string& path, unsigned char* buf, int len, bool cache) {
    if (len < 1)
        return -1;
    std::unique_lock<std::mutex> map_lock(fds_lock);
    if (auto found = file_fds_cache.find(path); found != file_fds_cache.end()) {
        const std::shared_ptr<fd_cache> entry = found->second;
        std::lock_guard<std::mutex> reading(entry->flock);
        map_lock.unlock();
        lseek(entry->fd, 0, SEEK_SET);
        return read_once(entry->fd, buf, len);
    }
    open_file file(path);
    if (file.fd() < 0) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "read_file no such file: %s\n",
                            path.c_str());
        return -2;
    }
    if (!cache || file_fds_cache.size() > cache_limit) {
        map_lock.unlock();
        return read_once(file.fd(), buf, len);
    }
    const auto entry = std::make_shared<fd_cache>(file.fd());
    std::lock_guard<std::mutex> reading(entry->flock);
    file_fds_cache.emplace(path, entry);
    file.take();
    map_lock.unlock();
    return read_once(entry->fd, buf, len);
}

void file_cache::empty_cache_file() {
    std::lock_guard<std::mutex> lock(fds_lock);
    for (auto& [path, entry] : file_fds_cache) {
        std::lock_guard<std::mutex> reading(entry->flock);
        close(entry->fd);
    }
    file_fds_cache.clear();
}
