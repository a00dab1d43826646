// The keys that a connection to a server is encrypted with, from what a user names.
#ifndef MONCL_TOOLS_ENCRYPTION_H
#define MONCL_TOOLS_ENCRYPTION_H

#include "endpoint.h"

#include <string>
#include <vector>

namespace tools {

/// Keys of a connection, 40 characters of Z85 each.
struct encryption {
    std::string key_file;   ///< where the own pair is from
    std::string public_key; ///< of the own pair
    std::string secret_key;
    std::string server_key; ///< the server's public key
};

/// Gives all of @p servers their keys.
/// @param key_file    file of the own pair; empty: no encryption
/// @param server_keys a public key or a file of one for each server, or one for all of them
/// @return what is wrong, and @p servers are as before; empty if nothing is
std::string give_keys(const std::string& key_file, const std::vector<std::string>& server_keys,
                      std::vector<endpoint>& servers);

} // namespace tools

#endif
