// Checking passwords.
#include "password_check.h"

#include <algorithm>
#include <crypt.h>
#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <memory>
#include <stdexcept>
#include <strings.h>

namespace exporter {

namespace {
constexpr double most_tokens = 10; // bcrypts at once
constexpr double tokens_per_second = 2;

// "Basic dXNlcjpwYXNz" as "user:pass".
std::optional<std::string> decoded(const std::string& header) {
    constexpr std::size_t scheme = 6;
    if (strncasecmp(header.c_str(), "Basic ", scheme) != 0)
        return std::nullopt;
    const std::size_t start = std::min(header.find_first_not_of(' ', scheme), header.size());
    gnutls_datum_t given{reinterpret_cast<unsigned char*>(const_cast<char*>(header.data() + start)),
                         static_cast<unsigned>(header.size() - start)};
    gnutls_datum_t made{};
    if (gnutls_base64_decode2(&given, &made) != 0)
        return std::nullopt;
    std::string text(reinterpret_cast<char*>(made.data), made.size);
    gnutls_free(made.data);
    return text.find(':') == text.npos ? std::nullopt : std::optional(text);
}
} // namespace

password_check::password_check(std::map<std::string, std::string> users)
    : users_(std::move(users)), tokens_(most_tokens) {
    if (gnutls_rnd(GNUTLS_RND_KEY, secret_.data(), secret_.size()) != 0)
        throw std::runtime_error("there are no random numbers");
}

password_check::digest password_check::digest_of(const std::string& credentials) const {
    digest made{};
    if (gnutls_hmac_fast(GNUTLS_MAC_SHA256, secret_.data(), secret_.size(), credentials.data(),
                         credentials.size(), made.data()) != 0)
        throw std::runtime_error("no digest could be made");
    return made;
}

bool password_check::take_token() {
    const auto now = std::chrono::steady_clock::now();
    const std::chrono::duration<double> passed = now - refilled_;
    refilled_ = now;
    tokens_ = std::min(most_tokens, tokens_ + passed.count() * tokens_per_second);
    if (tokens_ < 1)
        return false;
    --tokens_;
    return true;
}

bool password_check::matches(const std::string& user, const std::string& password) const {
    const auto found = users_.find(user);
    const std::string& hash = (found == users_.end() ? users_.begin() : found)->second;
    const auto data = std::make_unique<crypt_data>();
    const char* made = crypt_r(password.c_str(), hash.c_str(), data.get());
    const bool same = made != nullptr && std::string(made).size() == hash.size() &&
                      gnutls_memcmp(made, hash.data(), hash.size()) == 0;
    return same && found != users_.end() && password.find('\0') == password.npos;
}

password_check::verdict password_check::check(const std::optional<std::string>& header) {
    if (users_.empty())
        return verdict::good;
    const auto credentials = header ? decoded(*header) : std::nullopt;
    if (!credentials)
        return verdict::bad;
    const std::string user = credentials->substr(0, credentials->find(':'));
    const digest given = digest_of(*credentials);
    {
        const std::lock_guard<std::mutex> guard(lock_);
        const auto known = verified_.find(user);
        if (known != verified_.end() &&
            gnutls_memcmp(known->second.data(), given.data(), given.size()) == 0)
            return verdict::good;
        if (!take_token())
            return verdict::too_many;
    }
    const std::lock_guard<std::mutex> one_at_a_time(bcrypt_lock_);
    if (!matches(user, credentials->substr(user.size() + 1)))
        return verdict::bad;
    const std::lock_guard<std::mutex> guard(lock_);
    verified_[user] = given;
    return verdict::good;
}

} // namespace exporter
