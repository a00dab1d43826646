// Reading the keys that were named.
#include "encryption.h"

#include "curve_key_file.h"

#include <memory>

namespace tools {

namespace {
std::string read_server_key(const std::string& key_or_file, std::string& key) {
    if (!curve_keys::is_curve_key(key_or_file))
        return curve_keys::read_public_key(key_or_file, key);
    key = key_or_file;
    return {};
}
} // namespace

std::string give_keys(const std::string& key_file, const std::vector<std::string>& server_keys,
                      std::vector<endpoint>& servers) {
    if (key_file.empty() && server_keys.empty())
        return {};
    // One without the other may be a slip, and must not end in a plain connection.
    if (key_file.empty())
        return "the key of a server is of use only with a key of your own: name it with --key FILE "
               "(moncl keygen FILE makes one)";
    if (server_keys.empty())
        return "the server's key is missing: name it with --server-key KEY";
    if (server_keys.size() > 1 && server_keys.size() != servers.size())
        return "--server-key is given once, or once for each server";
    curve_keys::curve_key_pair own;
    if (std::string wrong = curve_keys::read_key_pair(key_file, own); !wrong.empty())
        return wrong;
    std::vector<std::shared_ptr<const encryption>> keys;
    for (const std::string& each : server_keys) {
        encryption one{key_file, own.public_key, own.secret_key, {}};
        if (std::string wrong = read_server_key(each, one.server_key); !wrong.empty())
            return wrong;
        keys.push_back(std::make_shared<const encryption>(std::move(one)));
    }
    for (std::size_t i = 0; i < servers.size(); ++i)
        servers[i].keys = keys[keys.size() == 1 ? 0 : i];
    return {};
}

} // namespace tools
