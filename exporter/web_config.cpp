// Reading the web configuration.
#include "web_config.h"

#include <cerrno>
#include <crypt.h>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <yaml.h>

namespace exporter {

namespace {

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (!file || !(text << file.rdbuf()))
        throw std::runtime_error("cannot read " + path + ": " + std::strerror(errno));
    return text.str();
}

/// The file as a tree, with errors that name a line.
class document {
public:
    explicit document(const std::string& path) : path_(path) {
        const std::string text = read_file(path);
        yaml_parser_t parser;
        yaml_parser_initialize(&parser);
        yaml_parser_set_input_string(&parser, reinterpret_cast<const unsigned char*>(text.data()),
                                     text.size());
        const bool loaded = yaml_parser_load(&parser, &tree_) == 1;
        const std::string problem = parser.problem == nullptr ? "no YAML" : parser.problem;
        const std::size_t line = parser.problem_mark.line;
        yaml_parser_delete(&parser);
        if (!loaded)
            refuse(line, problem);
    }
    ~document() { yaml_document_delete(&tree_); }
    document(const document&) = delete;
    document& operator=(const document&) = delete;

    /// Null if the file is empty.
    const yaml_node_t* root() { return yaml_document_get_root_node(&tree_); }

    [[noreturn]] void refuse(std::size_t line, const std::string& why) const {
        throw std::runtime_error(path_ + ", line " + std::to_string(line + 1) + ": " + why);
    }
    [[noreturn]] void refuse(const yaml_node_t& at, const std::string& why) const {
        refuse(at.start_mark.line, why);
    }

    std::string text_of(const yaml_node_t& node) const {
        if (node.type != YAML_SCALAR_NODE)
            refuse(node, "a text is needed here");
        const auto* text = reinterpret_cast<const char*>(node.data.scalar.value);
        return {text, node.data.scalar.length};
    }

    /// The entries of a mapping, by their keys.
    std::map<std::string, const yaml_node_t*> entries_of(const yaml_node_t& node) {
        if (node.type != YAML_MAPPING_NODE)
            refuse(node, "keys with values are needed here");
        std::map<std::string, const yaml_node_t*> entries;
        const auto& pairs = node.data.mapping.pairs;
        for (const yaml_node_pair_t* each = pairs.start; each < pairs.top; ++each) {
            const yaml_node_t& key = *yaml_document_get_node(&tree_, each->key);
            if (!entries.emplace(text_of(key), yaml_document_get_node(&tree_, each->value)).second)
                refuse(key, text_of(key) + " stands here a second time");
        }
        return entries;
    }

private:
    std::string path_;
    yaml_document_t tree_{};
};

void read_tls(document& from, const yaml_node_t& node, const std::string& folder,
              web_config& into) {
    for (const auto& [key, value] : from.entries_of(node)) {
        if (key != "cert_file" && key != "key_file")
            from.refuse(*value, key + " is not supported");
        const std::filesystem::path file = from.text_of(*value);
        (key == "cert_file" ? into.certificate : into.key) =
            read_file(file.is_absolute() ? file : std::filesystem::path(folder) / file);
    }
    if (into.certificate.empty() || into.key.empty())
        from.refuse(node, "TLS needs a cert_file and a key_file, which are not empty");
}

void read_users(document& from, const yaml_node_t& node, web_config& into) {
    for (const auto& [user, value] : from.entries_of(node)) {
        const std::string hash = from.text_of(*value);
        const bool is_bcrypt =
            hash.size() == 60 && (hash.rfind("$2a$", 0) == 0 || hash.rfind("$2b$", 0) == 0 ||
                                  hash.rfind("$2y$", 0) == 0);
        crypt_data data{};
        const char* made = is_bcrypt ? crypt_r("", hash.c_str(), &data) : nullptr;
        if (made == nullptr || *made == '*')
            from.refuse(*value, "the password of " + user +
                                    " needs a bcrypt hash, such as of "
                                    "htpasswd -nBC 10 USER");
        if (user.empty() || user.find(':') != user.npos)
            from.refuse(*value, "a user needs a name without a colon");
        into.users[user] = hash;
    }
    if (into.users.empty())
        from.refuse(node, "users are needed here");
}
} // namespace

web_config read_web_config(const std::string& path) {
    document file(path);
    web_config made;
    const yaml_node_t* root = file.root();
    if (root == nullptr)
        throw std::runtime_error(path + " says nothing");
    const std::string folder = std::filesystem::path(path).parent_path();
    for (const auto& [key, value] : file.entries_of(*root)) {
        if (key == "tls_server_config")
            read_tls(file, *value, folder, made);
        else if (key == "basic_auth_users")
            read_users(file, *value, made);
        else
            file.refuse(*value, key + " is not supported");
    }
    return made;
}

} // namespace exporter
