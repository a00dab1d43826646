// The list of outputs.
#include "output.h"

#include <algorithm>
#include <string_view>

namespace tools {

namespace {
std::vector<output_form>& registered() {
    static std::vector<output_form> all;
    return all;
}
} // namespace

std::vector<output_form> all_outputs() {
    std::vector<output_form> all = registered();
    std::sort(all.begin(), all.end(), [](const output_form& a, const output_form& b) {
        return std::string_view(a.name) < b.name;
    });
    return all;
}

output_registration::output_registration(output_form form) {
    registered().push_back(form);
}

} // namespace tools
