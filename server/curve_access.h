// Encryption, and who may connect: the handler that ZeroMQ asks about each client's key.
#ifndef MONSRV_CURVE_ACCESS_H
#define MONSRV_CURVE_ACCESS_H

#include "curve_key_file.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace monsrv {

using curve_keys::allowed_key;
using curve_keys::curve_key_pair;
using curve_keys::read_allowed_keys;
using curve_keys::read_key_pair;

/// Answers for the sockets of one ZeroMQ context whether a client's key is listed in a file, in a
/// thread of its own.
///
/// Without such a handler ZeroMQ takes every client that has any key, so this must exist before a
/// socket listens, and be destroyed after the context was shut down.
class curve_access {
public:
    /// @param allow_file lists the public keys of those who may connect
    /// @throws std::system_error or std::runtime_error if this build of ZeroMQ has no encryption,
    ///         the file cannot be used, or the context has a handler already
    curve_access(void* context, const std::string& allow_file);
    ~curve_access();
    curve_access(const curve_access&) = delete;
    curve_access& operator=(const curve_access&) = delete;

    /// Makes the ZeroMQ socket @p socket take encrypted connections only.
    /// @throws std::system_error if that fails
    static void secure(void* socket, const curve_key_pair& keys);
    /// Whether the client with this public key, 40 characters of Z85 or null, may connect. To be
    /// called from any thread.
    bool allows(const char* public_key) const;
    /// Reads the file again. If that fails, the list stays as it was, and the log says so. To be
    /// called from any thread.
    /// @return whether that worked
    bool read_again();
    /// Clients refused.
    std::uint64_t refused() const { return refused_; }

private:
    std::string read();
    void answer_until_shut_down();
    void answer_one(const std::string (&request)[8]);

    const std::string allow_file_;
    mutable std::mutex lock_;
    std::set<std::string, std::less<>> allowed_;
    std::atomic<std::uint64_t> refused_{0};
    void* handler_;
    std::thread answering_;
};

} // namespace monsrv

#endif
