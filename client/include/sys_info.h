// System information: the frequency of a CPU, the number of possible CPUs, the system version.
#ifndef MONCL_SYS_INFO_H
#define MONCL_SYS_INFO_H

#include "moncl_export.h"

#include <cstdint>
#include <memory>
#include <string>

/// Frequency of one CPU.
struct cpu_freq {
    std::uint64_t cpu_frequency = 0; ///< as the server's text gives it, not converted
};

/// Decodes the frequency of one CPU: text, one decimal number.
class MONCL_API cpu_freq_parser {
public:
    /// Decodes @p payload into a new `cpu_f`.
    /// @return 0; -1 after an exception
    /// @throws std::logic_error if @p payload is null
    int parse_cpu_freq(unsigned char* payload);
    /// Decodes @p text into `cpu_f`; the last line that holds anything wins.
    /// @return 0; -1 after an exception, which has been logged
    int parse_cpu_freq_msg(const std::string& text);

    std::shared_ptr<cpu_freq> cpu_f = std::make_shared<cpu_freq>(); ///< last decode, never null
};

/// Decodes the range of possible CPUs: text such as "0-7". The first number is taken to have one
/// digit; a text without a second number keeps the previous count and adds 1.
class MONCL_API cpu_possible_parser {
public:
    /// Decodes @p payload into `cpu_num`.
    /// @return 0; -1 after an exception
    /// @throws std::logic_error if @p payload is null
    int parse_cpu_possible(unsigned char* payload);
    /// Decodes @p text into `cpu_num`.
    /// @return 0; -1 after an exception, which has been logged
    int parse_cpu_possible_msg(const std::string& text);

    int cpu_num = 0; ///< number of possible CPUs, last decode
};

/// System version.
struct sys_version {
    std::string version; ///< one word
};

/// Decodes the system version: text, of which the first word of the last line counts.
class MONCL_API version_parser {
public:
    /// Decodes @p payload into a new `ver`.
    /// @return 1; 0 after an exception
    /// @throws std::logic_error if @p payload is null
    int parse_version(unsigned char* payload);
    /// Decodes @p text into `ver`.
    /// @return 1; 0 after an exception, which has been logged
    int parse_version_msg(const std::string& text);

    std::shared_ptr<sys_version> ver = std::make_shared<sys_version>(); ///< last decode, never null
};

#endif
