// Peripherals: block devices, partitions, temperatures, cooling devices and ion heaps. Records of
// block devices are in mon_peri.h, those of partitions and heaps in common_func.h.
#ifndef MONCL_PERI_H
#define MONCL_PERI_H

#include "common_func.h"
#include "mon_peri.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Keeps the two latest samples of the block devices' counters.
class MONCL_API block_stat_parser {
public:
    /// Decodes @p msg: a count byte, then that many packed `block_stat`, at most 170. The sample
    /// before stays in `last_stats` if it has as many devices.
    /// @return 0
    int block_stat_parse(unsigned char* msg);

    std::unique_ptr<block_stats> last_stats; ///< previous sample, or null
    std::unique_ptr<block_stats> stats;      ///< latest sample; null before the first
    timeval last_time{}; ///< receipt of the latest sample, set by the manager after its report
};

/// Keeps the latest list of partitions.
class MONCL_API partition_parser {
public:
    /// Decodes @p msg: a count byte, then that many packed `part_info`, at most 127.
    /// @return 1
    int partition_parse(unsigned char* msg);

    std::vector<part_info> part_vec; ///< last decode
};

/// Decodes a temperature: text, one decimal number.
class MONCL_API thermal_parser {
public:
    /// Decodes @p msg.
    /// @return 1; 0 after an exception
    /// @throws std::logic_error if @p msg is null
    int parse_thermal(unsigned char* msg);
    /// Decodes @p msg into `temp`; the last line that holds anything wins.
    /// @return 1; 0 after an exception, which has been written to standard output
    int parse_thermal_msg(const std::string& msg);

    std::uint64_t temp = 0; ///< 1/1000 degree Celsius, last decode
};

/// Decodes the state of a cooling device: text, one decimal number.
class MONCL_API cooling_parser {
public:
    /// Decodes @p msg.
    /// @return 1; 0 after an exception
    /// @throws std::logic_error if @p msg is null
    int parse_cooling(unsigned char* msg);
    /// Decodes @p msg into `stat`; the last line that holds anything wins.
    /// @return 1; 0 after an exception, which has been written to standard output
    int parse_cooling_msg(const std::string& msg);

    std::uint64_t stat = 0; ///< the device's own scale, last decode
};

/// Decodes all cooling devices and thermal zones at once.
class MONCL_API all_thermal_parser {
public:
    /// Decodes @p msg: a count byte of cooling texts, one of temperature texts, then the texts,
    /// each ended by a NUL. A text without a line repeats the value before it, 0 at first. Texts
    /// past the payload's 8192 bytes are not read: they count as having no line.
    /// @return 1; 0 after an exception, which has been written to standard output
    int parse_all(unsigned char* msg);

    std::vector<std::uint64_t> all_co; ///< cooling states, last decode
    std::vector<std::uint64_t> all_th; ///< 1/1000 degree Celsius, last decode
};

/// Keeps the latest list of ion heaps.
class MONCL_API ion_info_parser {
public:
    /// Decodes @p msg: a count byte, then that many packed `ion_info`.
    /// @return 1
    int parse_ion_info(unsigned char* msg);

    std::vector<ion_info> ion_vec; ///< last decode
};

#endif
