// Asking a block of the board, of which there are several instances with a query each.
#ifndef MONCL_TOOLS_BLOCK_INSTANCES_H
#define MONCL_TOOLS_BLOCK_INSTANCES_H

#include "board.h"
#include "subject.h"

#include <cerrno>
#include <cstring>
#include <set>
#include <string>

namespace tools {

/// The text of an answer, its parts joined. Give a std::shared_ptr to one as the parser of a
/// request handler's query to get the text undecoded; nothing is printed.
struct whole_text {
    std::string text;
};

/// Calls ask(i) for each instance i of @p block; ask(i) returns a code. Instances are asked
/// separately, so that a missing one does not fail the others. Other refusals become notes.
/// @return 0; the server's own negative code if it refused all; or that of the connection, at once
template<class Ask>
int ask_instances(board& server, const std::string& block, int count, sample& into, Ask ask) {
    int refusal = 0;
    bool any = false;
    for (int i = 0; i < count; ++i) {
        const int code = ask(i);
        if (code < 0 && !server.is_servers_own(code))
            return code;
        any = any || code >= 0;
        if (code >= 0)
            continue;
        refusal = code;
        if (code != -ENODEV)
            into.notes.push_back(block + std::to_string(i) +
                                 ": the server answers: " + std::strerror(-code));
    }
    return any ? 0 : refusal;
}

/// Makes names unique within one answer: a second "pym0" becomes "pym0.1".
class unique_names {
public:
    /// @return @p name, with a number after it if the same name was returned before
    std::string next(const std::string& name) {
        std::string unique = name;
        for (int i = 1; !given_.insert(unique).second; ++i)
            unique = name + "." + std::to_string(i);
        return unique;
    }

private:
    std::set<std::string> given_;
};

} // namespace tools

namespace ns_req_template {
template<>
int request_handler::handle_request(std::shared_ptr<tools::whole_text> into);
template<>
void request_handler::show_result(std::shared_ptr<tools::whole_text> from, std::ostream& out);
} // namespace ns_req_template

#endif
