// The list of blocks.
#include "block.h"

#include <algorithm>

namespace tools::live {

namespace {
std::vector<block>& registered() {
    static std::vector<block> all;
    return all;
}
} // namespace

std::vector<block> all_blocks() {
    std::vector<block> all = registered();
    std::sort(all.begin(), all.end(),
              [](const block& a, const block& b) { return a.place < b.place; });
    return all;
}

block_registration::block_registration(const block& what) {
    registered().push_back(what);
}

} // namespace tools::live
