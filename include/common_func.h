// What client and server share: the frame, its byte codecs and checksum, the wire records of fixed
// layout, formatting and time helpers, and the cache of open files.
#ifndef MONCL_COMMON_FUNC_H
#define MONCL_COMMON_FUNC_H

#include "moncl_export.h"
#include "request_numbers.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <sys/time.h>
#include <unordered_map>

// ---------------------------------------------------------------------------------------- frame

// A flexible array is not standard C++. GCC does not warn of one that is marked __extension__,
// clang does.
#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wc99-extensions"
#endif

/// The frame of every request and answer: a 44-byte header followed by the payload. The bytes of
/// the record are sent as they are, little-endian. Its declared size is 48, so a message with n
/// bytes of payload has 48 + n bytes.
struct data_struct {
    std::int32_t command;      ///< the manager's request code
    std::int32_t sub_command;  ///< the item asked for within `command`
    std::int32_t msg_len;      ///< meaningful payload bytes; in an answer a negative value is the
                               ///< server's error code
    std::uint8_t msg_type;     ///< '0' in every request
    std::uint16_t sum_packet;  ///< packets of the answer; 0 in every request
    std::uint16_t cur_packet;  ///< index of this packet; 0 in every request
    std::uint8_t command_type; ///< '0' in every request
    std::uint8_t client_id;    ///< id the server granted, 0 while none is held
    struct timeval time;       ///< wall clock at sending; the client puts its time of receipt here
    std::uint32_t crc;         ///< `crc32` of the payload
    __extension__ unsigned char msg[]; ///< payload, at offset 44 and so aligned to 4 bytes only
};

#ifdef __clang__
#pragma clang diagnostic pop
#endif

/// Bytes of the frame before its payload.
inline constexpr int frame_header_size = offsetof(data_struct, msg);
/// Most payload bytes of a request.
inline constexpr int request_payload_max = 1024;
/// Payload bytes of an answer packet.
inline constexpr int answer_payload_max = 8192;
/// Bytes of an answer packet.
inline constexpr int answer_frame_size = sizeof(data_struct) + answer_payload_max;
/// Most packets of one answer.
inline constexpr int answer_parts_max = 50;

static_assert(sizeof(data_struct) == 48 && alignof(data_struct) == 8);
static_assert(offsetof(data_struct, sub_command) == 4 && offsetof(data_struct, msg_len) == 8);
static_assert(offsetof(data_struct, msg_type) == 12 && offsetof(data_struct, sum_packet) == 14);
static_assert(offsetof(data_struct, cur_packet) == 16 && offsetof(data_struct, command_type) == 18);
static_assert(offsetof(data_struct, client_id) == 19 && offsetof(data_struct, time) == 24);
static_assert(offsetof(data_struct, crc) == 40 && frame_header_size == 44);
static_assert(answer_frame_size == 8240);

/// Parameters of a CRC-32.
typedef struct {
    std::uint32_t poly;      ///< generator polynomial, not reflected
    std::uint32_t InitValue; ///< initial register
    std::uint32_t xorr;      ///< XORed into the final register
    bool InputReverse;       ///< reflect each input byte
    bool OutputReverse;      ///< reflect the final register
} CRC_32;

/// CRC-32/ISO-HDLC. Not used on this wire.
inline constexpr CRC_32 crc_32{0x04C11DB7, 0xFFFFFFFF, 0xFFFFFFFF, true, true};
/// CRC-32/MPEG-2, the set both ends of the wire name.
inline constexpr CRC_32 crc_32_MPEG2{0x04C11DB7, 0xFFFFFFFF, 0x00000000, false, false};

/// Checksum of a payload. Switched off on this wire: returns 0 for every input and reads nothing,
/// so an answer that carries any other checksum is rejected.
MONCL_API unsigned int crc32(unsigned char* addr, int num, CRC_32 type);

/// Writes @p value to out[0..3], least significant byte first.
MONCL_API void u32_to_u8(unsigned int value, unsigned char* out);
/// Reads in[0..3], least significant byte first.
MONCL_API unsigned int u8_to_u32(const unsigned char* in);
/// Writes @p value to out[0..7], MOST significant byte first, unlike the 32-bit pair.
MONCL_API void u64_to_u8(unsigned long value, unsigned char* out);
/// Reads in[0..7], MOST significant byte first, unlike the 32-bit pair.
MONCL_API unsigned long u8_to_u64(const unsigned char* in);
/// @p data with its bits in reverse order.
MONCL_API unsigned char reverse8(unsigned char data);
/// @p data with its bits in reverse order.
MONCL_API unsigned int reverse32(unsigned int data);

// --------------------------------------------------------------------------------- wire records

/// Marks a record, or an 8-byte field of one, that is read in place in a received frame. Payloads
/// start at offset 44, so what lies in them must not require more than 4-byte alignment. Read
/// 8-byte fields by value: a reference to one may be misaligned.
#define MONCL_READ_IN_PLACE __attribute__((packed, aligned(4)))

/// Totals of the hardware and kernel event counters since counting was switched on; the payload of
/// a counter answer, little-endian.
struct MONCL_READ_IN_PLACE perf_counters {
    std::uint64_t cycles;
    std::uint64_t cs; ///< context switches
    std::uint64_t instructions;
    std::uint64_t migrations;
    std::uint64_t page_faults;
    std::uint64_t stall_frontend;
    std::uint64_t stall_backend;
    std::uint64_t l1d_misses;
    std::uint64_t l1d_load;
    std::uint64_t l1i_misses;
    std::uint64_t l1i_load;
    std::uint64_t l2d_cache;
    std::uint64_t l2d_cache_refill;
    std::uint64_t l3d_cache;
    std::uint64_t l3d_cache_refill;
    std::uint64_t llc_misses;
    std::uint64_t llc_load;
    std::uint64_t itlb_misses;
    std::uint64_t itlb_load;
    std::uint64_t dtlb_misses;
    std::uint64_t dtlb_load;
    std::uint64_t branch_misses;
    std::uint64_t branches;
};
static_assert(sizeof(perf_counters) == 184 && alignof(perf_counters) == 4);
static_assert(offsetof(perf_counters, instructions) == 16);
static_assert(offsetof(perf_counters, l1d_misses) == 56 &&
              offsetof(perf_counters, l2d_cache) == 88);
static_assert(offsetof(perf_counters, llc_misses) == 120 &&
              offsetof(perf_counters, branches) == 176);

/// One partition; copied out of the payload.
struct part_info {
    char part_name[32];        ///< name, NUL-terminated unless it fills the field
    std::uint64_t f_bavail;    ///< blocks available to unprivileged users
    std::uint64_t f_blocks;    ///< blocks in all
    std::uint64_t f_frsize;    ///< bytes of a block
    std::uint64_t blocks_used; ///< blocks in use
};
static_assert(sizeof(part_info) == 64 && offsetof(part_info, f_bavail) == 32);
static_assert(offsetof(part_info, f_frsize) == 48 && offsetof(part_info, blocks_used) == 56);

/// One ion heap; copied out of the payload.
struct ion_info {
    char ion_name[16];  ///< name, NUL-terminated unless it fills the field
    std::uint64_t used; ///< bytes in use
};
static_assert(sizeof(ion_info) == 24 && offsetof(ion_info, used) == 16);

/// Bytes of one watched process; copied out of the payload, little-endian.
struct process_net_s {
    std::int32_t pid;
    std::uint64_t total; ///< cumulative bytes
};
static_assert(sizeof(process_net_s) == 16 && offsetof(process_net_s, total) == 8);

/// The text of a record's character field: up to its NUL, or all of a field that has none. It is a
/// view of @p field.
template<std::size_t Size>
std::string_view field_text(const char (&field)[Size]) {
    return std::string_view(field, Size).substr(0, std::string_view(field, Size).find('\0'));
}

// --------------------------------------------------------------------- formatting and time helpers

/// Part of this module's interface; nothing in the library reads or writes it.
MONCL_API extern FILE* logFile;

/// Writes @p val to @p os as a size with one decimal and a unit letter ("1.5K"), in steps of 1024.
/// The width and fill of the stream apply. A value that rounds up to 1024.0 keeps its unit.
/// @param off unit of @p val itself: 0 bytes, 1 K, 2 M ... 8 Y; a unit past Y is shown as Y
MONCL_API void show_by_unit(unsigned long val, std::ostream& os, unsigned char off);

/// @p end - @p start in milliseconds, the microsecond part truncated toward zero; a negative
/// difference wraps.
MONCL_API std::uint64_t time_diff(timeval& start, timeval& end);
/// @p end - @p start in microseconds; a negative difference wraps.
MONCL_API std::uint64_t time_diff_us(timeval& start, timeval& end);

/// @p ms milliseconds in ticks of a 100 Hz clock, rounded down.
inline std::uint64_t ms_to_ujiffies(unsigned long ms) {
    return ms * 100 / 1000;
}

// ----------------------------------------------------------------------------------- file cache

/// One descriptor kept open by `file_cache`. It does not close @p fd: the cache does.
struct fd_cache {
    explicit fd_cache(int descriptor) : fd(descriptor) {}
    int fd;           ///< opened read-only
    std::mutex flock; ///< held while the file is read through `fd`
};

/// Process-wide cache of open files, for files that are read from their start again and again.
/// All members may be called from any thread; `fds_lock` is taken before any entry's `flock`. They
/// may throw std::bad_alloc; no file is then open that is not in the cache. At most 301 files are
/// kept open.
class MONCL_API file_cache {
public:
    /// Opens @p path unless it is in the cache, and keeps it.
    /// @return the descriptor, owned by the cache and open until `empty_cache_file`; -2 if the file
    ///         cannot be opened; -24 if the cache is full
    static int open_and_cache(const std::string& path);

    /// Reads @p path from its start with one read call and NUL-terminates what was read.
    /// @param buf   receives at most @p len - 1 bytes and a NUL; untouched if nothing was read
    /// @param len   size of @p buf
    /// @param cache keep the file open for the next call, if the cache has room
    /// @return bytes read, 0 at the end of the file; -1 on a read error or @p len below 1; -2 if
    ///         the file cannot be opened
    static int read_file(const std::string& path, unsigned char* buf, int len, bool cache);

    /// Closes every cached file.
    static void empty_cache_file();

    static std::unordered_map<std::string, std::shared_ptr<fd_cache>> file_fds_cache; ///< by path
    static std::mutex fds_lock; ///< protects `file_fds_cache`
};

#endif
