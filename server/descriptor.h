// A file descriptor that is closed when its owner goes.
#ifndef MONSRV_DESCRIPTOR_H
#define MONSRV_DESCRIPTOR_H

#include <unistd.h>

namespace monsrv {

/// Owns an open descriptor, or holds a negative number in its place.
struct descriptor {
    explicit descriptor(int number) : fd(number) {}
    ~descriptor() {
        if (fd >= 0)
            close(fd);
    }
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;
    int fd;
};

} // namespace monsrv

#endif
