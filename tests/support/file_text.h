// Files that tests read.
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

/// A text or payload below fuzz/inputs/, in the folder of the fuzz target that starts from it too.
inline std::string fuzz_input(const std::string& path) {
    return file_text(FUZZ_INPUTS "/" + path);
}

#endif
