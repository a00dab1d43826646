// Reads files of keys. A message about a mistake names its line and never shows a key.
#include "curve_key_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zmq.h>

namespace curve_keys {

namespace {
constexpr std::size_t key_characters = 40;
constexpr std::size_t key_bytes = 32;
constexpr std::size_t largest_file = 1048576;
constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
    const std::size_t start = text.find_first_not_of(blanks);
    if (start == text.npos)
        return {};
    return text.substr(start, text.find_last_not_of(blanks) - start + 1);
}

// Calls take(line) for each line that holds something, without the blanks around it.
template<class Take>
std::string each_line(std::string_view text, Take take) {
    for (int number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::string wrong = line.empty() ? "" : take(line);
        if (!wrong.empty())
            return "line " + std::to_string(number) + ": " + wrong;
    }
    return {};
}

// Reads the quoted key after "public =" or "secret =".
std::string take_named_key(std::string_view line, curve_key_pair& pair) {
    if (line.front() == '#')
        return {};
    const std::size_t equals = line.find('=');
    const std::string_view name = trimmed(line.substr(0, equals));
    if (equals == line.npos || (name != "public" && name != "secret"))
        return "neither public = \"KEY\" nor secret = \"KEY\"";
    std::string_view value = trimmed(line.substr(equals + 1));
    if (value.size() != key_characters + 2 || value.front() != '"' || value.back() != '"' ||
        !is_curve_key(value.substr(1, key_characters)))
        return "not a key of 40 characters in quotes";
    std::string& key = name == "public" ? pair.public_key : pair.secret_key;
    if (!key.empty())
        return "a second " + std::string(name) + " key";
    key = value.substr(1, key_characters);
    return {};
}

std::string read_file(const std::string& path, bool is_private, std::string& text) {
    // Without O_NONBLOCK opening a FIFO would wait for its other end.
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd == -1)
        return std::strerror(errno);
    struct stat info {};
    std::string wrong;
    if (fstat(fd, &info) == -1)
        wrong = std::strerror(errno);
    else if (!S_ISREG(info.st_mode))
        wrong = "not a regular file";
    else if (is_private && (info.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        wrong = "others than its owner have access to it (chmod 600)";
    text.clear();
    for (ssize_t n = 1; wrong.empty() && n > 0;) {
        char piece[4096];
        n = read(fd, piece, sizeof piece);
        if (n == -1)
            wrong = std::strerror(errno);
        else
            text.append(piece, static_cast<std::size_t>(n));
        if (text.size() > largest_file)
            wrong = "larger than 1 MiB";
    }
    close(fd);
    return wrong;
}

// Reads the file and parses its text. An error message starts with the path.
template<class Result>
std::string read_and_parse(const std::string& path, bool is_private, Result& result,
                           std::string (*parse)(std::string_view, Result&)) {
    std::string text;
    std::string wrong = read_file(path, is_private, text);
    if (wrong.empty())
        wrong = parse(text, result);
    return wrong.empty() ? wrong : path + ": " + wrong;
}
} // namespace

bool is_curve_key(std::string_view text) {
    std::uint8_t bytes[key_bytes];
    return text.size() == key_characters && text.find('\0') == text.npos &&
           zmq_z85_decode(bytes, std::string(text).c_str()) != nullptr;
}

std::string parse_key_pair(std::string_view text, curve_key_pair& pair) {
    curve_key_pair found;
    const std::string wrong =
        each_line(text, [&](std::string_view line) { return take_named_key(line, found); });
    if (!wrong.empty())
        return wrong;
    if (found.public_key.empty() || found.secret_key.empty())
        return "has no " + std::string(found.public_key.empty() ? "public" : "secret") + " key";
    char derived[key_characters + 1];
    if (zmq_curve_public(derived, found.secret_key.c_str()) == 0 && found.public_key != derived)
        return "the public key is not that of the secret key";
    pair = std::move(found);
    return {};
}

std::string parse_public_key(std::string_view text, std::string& key) {
    curve_key_pair found;
    const std::string wrong =
        each_line(text, [&](std::string_view line) { return take_named_key(line, found); });
    if (!wrong.empty())
        return wrong;
    if (found.public_key.empty())
        return "has no public key";
    key = std::move(found.public_key);
    return {};
}

std::string parse_allowed_keys(std::string_view text, std::vector<allowed_key>& keys) {
    std::vector<allowed_key> found;
    std::string wrong = each_line(text, [&](std::string_view line) -> std::string {
        const std::size_t end = std::min(line.find_first_of(blanks), line.size());
        const std::string_view key = line.substr(0, end);
        if (is_curve_key(key))
            found.push_back({std::string(key), std::string(trimmed(line.substr(end)))});
        else if (line.front() != '#')
            return "does not start with a key of 40 characters";
        return {};
    });
    if (wrong.empty())
        keys = std::move(found);
    return wrong;
}

std::string read_key_pair(const std::string& path, curve_key_pair& pair) {
    return read_and_parse(path, true, pair, parse_key_pair);
}

std::string read_public_key(const std::string& path, std::string& key) {
    return read_and_parse(path, false, key, parse_public_key);
}

std::string read_allowed_keys(const std::string& path, std::vector<allowed_key>& keys) {
    return read_and_parse(path, false, keys, parse_allowed_keys);
}

} // namespace curve_keys
