// Files that tests read. Below tests/data/, inputs/TARGET/ are texts and payloads that the fuzz
// target of that name starts from as well.
#ifndef MONCL_TESTS_FILE_TEXT_H
#define MONCL_TESTS_FILE_TEXT_H

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

/// All bytes of the file at @p path.
/// @throws std::runtime_error if it cannot be read
inline std::string file_text(const std::string& path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    if (!bytes)
        throw std::runtime_error("cannot read " + path);
    return bytes.str();
}

/// A file below tests/data/.
inline std::string test_data(const std::string& path) {
    return file_text(TEST_DATA "/" + path);
}

#endif
