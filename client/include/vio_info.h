// The video pipeline: frame rates of its blocks, use cases of the image signal processor,
// statistics of the pyramid scaler.
#ifndef MONCL_VIO_INFO_H
#define MONCL_VIO_INFO_H

#include "moncl_export.h"

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

/// Frame rates of one pipe at one block of the video pipeline.
struct pipe_fps {
    std::string ip_name;          ///< the block's instance, as the server writes it
    std::uint16_t pipe_id = 0;    ///< pipe number
    std::uint16_t input_fps = 0;  ///< frames per second entering the block
    std::uint16_t output_fps = 0; ///< frames per second leaving the block
};

/// Frame rates by pipe number.
using fps_map = std::unordered_map<std::uint16_t, std::shared_ptr<pipe_fps>>;

/// One use case of the image signal processor. The first three fields are the characters of the
/// text, not their values.
struct isp_info {
    std::uint8_t ctx_count = 0;   ///< firmware contexts
    std::uint8_t active = 0;      ///< active contexts
    std::uint8_t unactive = 0;    ///< inactive contexts
    std::uint32_t pipe_id = 0;    ///< pipe number
    std::uint32_t frame_rate = 0; ///< frames per second
    std::uint32_t s_Width = 0;    ///< sensor width in pixels
    std::uint32_t s_Height = 0;   ///< sensor height in pixels
    std::string dev_sched_mode;   ///< scheduling mode, one word
};

/// Statistics of one pyramid scaler.
struct pym_stat {
    std::uint8_t mode = 0;          ///< the character of the text, not its value
    std::uint32_t input_width = 0;  ///< pixels
    std::uint32_t input_height = 0; ///< pixels
    std::uint64_t hw_drop_cnt =
        0; ///< frames dropped by hardware; 0 unless its label begins with it
    std::uint64_t sw_drop_cnt = 0;  ///< frames dropped by software
    std::uint64_t isp_drop_cnt = 0; ///< frames dropped on the image signal processor's side
};

// Decoders of the video pipeline add to what their parser holds; the manager empties it at the
// start of a query. Of two frame-rate lines of one pipe the first counts. All return false after an
// exception, which has been written to standard output, and keep what came before it. Those that
// take `unsigned char*` throw std::logic_error if it is null.

/// Decodes what the image signal processor reports.
class MONCL_API isp_parser {
public:
    bool parse_isp_fps(unsigned char* msg);          ///< decodes frame rates into `fps`
    bool parse_isp_fps_msg(const std::string& msg);  ///< decodes frame rates into `fps`
    bool parse_isp_info(unsigned char* msg);         ///< decodes, then prints all of `info` to
                                                     ///< standard output
    bool parse_isp_info_msg(const std::string& msg); ///< appends use cases to `info`

    fps_map fps;                                 ///< frame rates
    std::vector<std::shared_ptr<isp_info>> info; ///< use cases, in the order of the text
};

/// Decodes what the pyramid scaler reports.
class MONCL_API pym_parser {
public:
    bool parse_pym_fps(unsigned char* msg);          ///< decodes frame rates into `fps`
    bool parse_pym_fps_msg(const std::string& msg);  ///< decodes frame rates into `fps`
    bool parse_pym_stat(unsigned char* msg);         ///< decodes, then prints all of `stat` to
                                                     ///< standard output
    bool parse_pym_stat_msg(const std::string& msg); ///< appends instances to `stat`

    fps_map fps;                                 ///< frame rates
    std::vector<std::shared_ptr<pym_stat>> stat; ///< instances, in the order of the text
};

/// Decodes what the camera interface reports.
class MONCL_API cim_parser {
public:
    bool parse_cim_fps(unsigned char* msg);         ///< decodes frame rates into `fps`
    bool parse_cim_fps_msg(const std::string& msg); ///< decodes frame rates into `fps`

    fps_map fps; ///< frame rates
};

/// Decodes what the distortion correction reports; its lines carry no input rate.
class MONCL_API gdc_parser {
public:
    bool parse_gdc_fps(unsigned char* msg);         ///< decodes frame rates into `fps`
    bool parse_gdc_fps_msg(const std::string& msg); ///< decodes frame rates into `fps`

    fps_map fps; ///< frame rates
};

/// Answers to the delay query. Its maps, by block name, are not filled.
class MONCL_API vio_info_parser {
public:
    /// Writes "parse_vio_delay" and a line end to standard output; @p msg is not read.
    /// @return true
    static bool parse_vio_delay(unsigned char* msg);

    std::unordered_map<std::string, isp_parser> isps;
    std::unordered_map<std::string, pym_parser> pyms;
    std::unordered_map<std::string, gdc_parser> gdcs;
    std::unordered_map<std::string, cim_parser> cims;
};

#endif
