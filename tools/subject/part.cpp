// Space of file systems.
#include "board.h"
#include "subject.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string_view>

namespace tools {
namespace {

// Bytes of names, each with a blank after it, that fit into a request.
constexpr std::size_t names_room = request_payload_max - 2;
// Characters of a name, and file systems, that an answer has room for.
constexpr std::size_t shown_length = sizeof(part_info::part_name) - 1;
constexpr std::size_t parts_max = (answer_payload_max - 1) / sizeof(part_info);

std::string shown(const std::string& name) {
    return name.substr(0, shown_length);
}

// Blanks separate the names of a request, so those inside a name are escaped, as in the kernel's
// list of mounts.
std::string escaped(const std::string& name) {
    std::string request;
    for (const char c : name) {
        if (std::string_view(" \t\n\v\f\r\\").find(c) == std::string_view::npos) {
            request += c;
            continue;
        }
        char octal[8];
        std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned>(c));
        request += octal;
    }
    return request;
}

/// Names that fit into one request and whose beginnings, all that an answer shows, differ.
struct batch {
    std::map<std::string, std::string> names; ///< by their beginnings
    std::vector<std::string> request;
    std::size_t bytes = 0;

    bool has_room(const std::string& name, std::size_t needed) const {
        return bytes + needed <= names_room && names.size() < parts_max &&
               names.count(shown(name)) == 0;
    }
};

/// What was asked for by name.
struct wanted {
    explicit wanted(const std::vector<std::string>& asked_for) {
        const std::set<std::string> names(asked_for.begin(), asked_for.end());
        for (const std::string& name : names)
            add(name);
    }

    std::vector<batch> batches;
    std::vector<std::string> faults; ///< of names that no request can hold

private:
    void add(const std::string& name) {
        const std::string escaped_name = escaped(name);
        const std::size_t needed = escaped_name.size() + 1;
        if (name.empty() || needed > names_room) {
            faults.push_back(name.empty() ? "a name of a file system is empty"
                                          : "the name is too long for a request: " + name);
            return;
        }
        auto found = std::find_if(batches.begin(), batches.end(),
                                  [&](const batch& b) { return b.has_room(name, needed); });
        if (found == batches.end())
            found = batches.emplace(batches.end());
        found->names[shown(name)] = name;
        found->request.push_back(escaped_name);
        found->bytes += needed;
    }
};

value bytes_of(std::uint64_t blocks, std::uint64_t block_size) {
    std::uint64_t bytes = 0;
    return __builtin_mul_overflow(blocks, block_size, &bytes) ? value() : value(bytes);
}

void add_row(const std::string& name, const part_info& part, sample& into) {
    const auto used = static_cast<double>(part.blocks_used);
    into.add(name, bytes_of(part.f_blocks, part.f_frsize),
             bytes_of(part.blocks_used, part.f_frsize), bytes_of(part.f_bavail, part.f_frsize),
             100 * used / (used + static_cast<double>(part.f_bavail)));
}

int query(board& server, const std::vector<std::string>& names) {
    std::vector<const char*> request;
    request.reserve(names.size());
    for (const std::string& name : names)
        request.push_back(name.c_str());
    return server.peripherals.get_partition_info(request, nullptr);
}

int ask_for_all(board& server, sample& into) {
    const int code = query(server, {});
    if (code < 0)
        return code;
    const auto& parts = server.peripherals.part_parser->part_vec;
    std::set<std::string_view> names;
    for (const part_info& part : parts) {
        names.insert(field_text(part.part_name));
        add_row(std::string(field_text(part.part_name)), part, into);
    }
    if (names.size() < parts.size())
        into.notes.emplace_back("the server gives several file systems one name: ask for them by "
                                "their mount points");
    if (parts.size() == parts_max)
        into.notes.push_back("the server names at most " + std::to_string(parts_max) +
                             " file systems: ask for others by name");
    return code;
}

int ask_for(board& server, const batch& names, sample& into) {
    const int code = query(server, names.request);
    if (code < 0)
        return code;
    std::map<std::string, std::string> missing = names.names;
    for (const part_info& part : server.peripherals.part_parser->part_vec) {
        // The answer may repeat a name, or hold one that nobody asked for.
        const auto found = missing.find(std::string(field_text(part.part_name)));
        if (found == missing.end())
            continue;
        add_row(found->second, part, into);
        missing.erase(found);
    }
    for (const auto& each : missing)
        into.faults.push_back("the server has no figures of a file system " + each.second);
    return code;
}

asker open(const selection& chosen) {
    if (chosen.names.empty())
        return ask_for_all;
    return [all = std::make_shared<const wanted>(chosen.names)](board& server, sample& into) {
        into.faults = all->faults;
        int code = 0;
        for (auto each = all->batches.begin(); each != all->batches.end() && code >= 0; ++each)
            code = ask_for(server, *each, into);
        return code;
    };
}

const subject_registration registered([] {
    subject part{
        "part",
        "filesystem",
        "Space of file systems",
        {label("filesystem", "Filesystem",
               "Name of its device, or its mount point if it was asked for by that"),
         gauge("size_bytes", unit::bytes, "Space of the file system").column("size"),
         gauge("used_bytes", unit::bytes, "Space in use").column("used", 2),
         gauge("available_bytes", unit::bytes, "Space that users other than root can still have")
             .column("available"),
         gauge("used_percent", unit::percent,
               "Space in use, as a share of what is in use or available")
             .column("%used")},
        open};
    part.library_report = [](board& server, std::ostream& out) {
        std::vector<const char*> all;
        const int code = server.peripherals.get_partition_info(all, &out);
        out << "\n";
        return code;
    };
    part.selects_names = true;
    part.place = 50;
    part.changes_slowly = true;
    part.summary_rows = 6;
    return part;
}());

} // namespace
} // namespace tools
