// Block-device records: one device's counters and one sample of all devices.
#ifndef MONCL_MON_PERI_H
#define MONCL_MON_PERI_H

#include "common_func.h"

/// One block device; copied out of the payload, little-endian.
struct block_stat {
    char name[32];       ///< device name, NUL-terminated unless it fills the field
    std::uint64_t rd_kb; ///< cumulative kilobytes read
    std::uint64_t wr_kb; ///< cumulative kilobytes written
};
static_assert(sizeof(block_stat) == 48 && offsetof(block_stat, rd_kb) == 32);
static_assert(offsetof(block_stat, wr_kb) == 40);

/// One sample of all block devices. Owns `stat`.
struct block_stats {
    /// A sample of @p count zeroed devices.
    explicit block_stats(std::uint8_t count) : num(count), stat(new block_stat[count]{}) {}
    ~block_stats() { delete[] stat; }
    block_stats(const block_stats&) = delete;
    block_stats& operator=(const block_stats&) = delete;

    std::uint8_t num; ///< devices in `stat`
    block_stat* stat; ///< array of `num` devices, owned
};

#endif
