// The memory of the machine.
#ifndef MONCL_MEMINFO_H
#define MONCL_MEMINFO_H

#include "moncl_export.h"

#include <cstdint>
#include <string>
#include <unordered_map>

/// Sizes of the machine's memory, in kB.
struct meminfo {
    std::uint64_t memTotal = 0;
    std::uint64_t memfree = 0;
    std::uint64_t memAvailable = 0;
    std::uint64_t buffer = 0;
    std::uint64_t cached = 0;
    std::uint64_t slab = 0;
    std::uint64_t file = 0; ///< file-backed pages, active and inactive
    std::uint64_t anon = 0; ///< anonymous pages, active and inactive
};

/// Decodes the text of /proc/meminfo.
class MONCL_API meminfo_parser {
public:
    /// Decodes @p msg into `mem`; a size that the text lacks becomes 0.
    /// @return 1; 0 after an exception, which has been written to standard output and leaves `mem`
    ///         as it was
    int parse_meminfo(unsigned char* msg);
    /// Stores the values of @p msg, lines of "key: value", by key into @p values.
    /// @throws std::invalid_argument "stol" for a value that is not a number, std::out_of_range
    ///         "stol" for one that is too large
    void parseMeminfo(const std::string& msg, std::unordered_map<std::string, long>& values);

    meminfo mem; ///< last decode
};

#endif
