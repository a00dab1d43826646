// Basic authentication: passwords against bcrypt hashes.
#ifndef MONCL_EXPORTER_PASSWORD_CHECK_H
#define MONCL_EXPORTER_PASSWORD_CHECK_H

#include <array>
#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace exporter {

/// Knows the users. A check takes equally long for a user that does not exist. From any thread.
class password_check {
public:
    enum class verdict { good, bad, too_many };

    /// @param users with bcrypt hashes; without any, all is good
    explicit password_check(std::map<std::string, std::string> users);

    /// Looks at the header Authorization, if there was one. A password that was right before costs
    /// a hash. Any other costs a bcrypt. Only a few bcrypts are computed in a second, one after the
    /// other; beyond that the verdict is too_many, whatever the password.
    verdict check(const std::optional<std::string>& header);

private:
    using digest = std::array<unsigned char, 32>;

    digest digest_of(const std::string& credentials) const;
    bool take_token();
    bool matches(const std::string& user, const std::string& password) const;

    std::map<std::string, std::string> users_;
    std::array<unsigned char, 32> secret_{}; // of the digests, new in each process
    std::mutex lock_;                        // of the rest
    std::map<std::string, digest> verified_; // by user
    double tokens_;
    std::chrono::steady_clock::time_point refilled_ = std::chrono::steady_clock::now();
    std::mutex bcrypt_lock_;
};

} // namespace exporter

#endif
