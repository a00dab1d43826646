// The file of --web-config: TLS and users, in the form that the exporters of Prometheus share.
//
//     tls_server_config:
//       cert_file: server.pem
//       key_file: server.key
//     basic_auth_users:
//       alice: $2y$10$...
#ifndef MONCL_EXPORTER_WEB_CONFIG_H
#define MONCL_EXPORTER_WEB_CONFIG_H

#include <map>
#include <string>

namespace exporter {

/// What the file says.
struct web_config {
    std::string certificate;                  ///< PEM, the contents of cert_file; empty: no TLS
    std::string key;                          ///< PEM, the contents of key_file
    std::map<std::string, std::string> users; ///< with the bcrypt hashes of their passwords
};

/// Reads the file @p path. Files that it names are looked for from its own folder on. Any other
/// setting is refused, because it may be there to protect somebody.
/// @throws std::runtime_error with the line and what is wrong with it
web_config read_web_config(const std::string& path);

} // namespace exporter

#endif
