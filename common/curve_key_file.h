// Files of keys for encrypted connections: one's own pair, and the keys of those who may connect.
//
// A key is 32 bytes, written as 40 characters of Z85. A pair is two lines, in any order:
//
//     public = "Yne@$w-vo<fVvi]a<NY6T1ed:M$fCG*[IaLV{hID"
//     secret = "D:)Q[IlAW!ahhC2ac:9*A}h:p?([4%wOTJ%JR%cs"
//
// A file of a public key alone has the first of these. A file of those who may connect has a key at
// the start of each line; the rest of the line is the name of whom it belongs to. In all of them
// blank lines and lines that start with '#' are ignored; a key may start with '#' itself.
#ifndef MONCL_CURVE_KEY_FILE_H
#define MONCL_CURVE_KEY_FILE_H

#include <string>
#include <string_view>
#include <vector>

namespace curve_keys {

/// Keys as 40 characters of Z85.
struct curve_key_pair {
    std::string public_key;
    std::string secret_key; ///< empty where only the public key was asked for
};

/// One who may connect.
struct allowed_key {
    std::string public_key; ///< 40 characters of Z85
    std::string name;       ///< empty if the line has none
};

/// Whether @p text is 40 characters of Z85 that stand for 32 bytes.
bool is_curve_key(std::string_view text);

/// Reads a pair from the text of a file.
/// @return what is wrong, and @p pair is as before; empty if nothing is
std::string parse_key_pair(std::string_view text, curve_key_pair& pair);
/// Reads a public key from the text of a file, which may have a secret key too.
/// @return as `parse_key_pair`
std::string parse_public_key(std::string_view text, std::string& key);
/// Reads the keys of those who may connect from the text of a file; there may be none.
/// @return as `parse_key_pair`
std::string parse_allowed_keys(std::string_view text, std::vector<allowed_key>& keys);

/// Reads the pair in the file @p path, which nobody but its owner may have access to.
/// @return what is wrong, the path included, and @p pair is as before; empty if nothing is
std::string read_key_pair(const std::string& path, curve_key_pair& pair);
/// Reads the public key in the file @p path.
/// @return as `read_key_pair`
std::string read_public_key(const std::string& path, std::string& key);
/// Reads the keys of those who may connect from the file @p path, of 1 MiB at most.
/// @return as `read_key_pair`
std::string read_allowed_keys(const std::string& path, std::vector<allowed_key>& keys);

} // namespace curve_keys

#endif
