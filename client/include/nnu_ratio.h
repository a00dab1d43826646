// Load of a core of the neural-network accelerator.
#ifndef MONCL_NNU_RATIO_H
#define MONCL_NNU_RATIO_H

#include "moncl_export.h"

#include <string>

/// Decodes the load of one accelerator core: text, one decimal number, fractions allowed.
class MONCL_API nnu_ratio_parser {
public:
    /// Decodes @p msg.
    /// @return 1; 0 after an exception
    /// @throws std::logic_error if @p msg is null
    int parse_nnu_ratio(unsigned char* msg);
    /// Decodes @p msg into `nnu_rat`; the last line that holds anything wins.
    /// @return 1; 0 after an exception, which has been written to standard output
    int parse_nnu_msg(const std::string& msg);

    float nnu_rat = 0; ///< percent, last decode
    std::string name;  ///< core asked last, set by the manager
};

#endif
