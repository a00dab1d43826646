// The samples of a recording, as those of the history in memory.
#ifndef MONCL_EXPORTER_RECORDED_HISTORY_H
#define MONCL_EXPORTER_RECORDED_HISTORY_H

#include "history.h"

#include <string>

namespace exporter {

/// Adds what the recording @p path has of one host from `since` until before `until`. The samples
/// have rates. Where samples are left out, a rate is formed over the time in between.
/// @param wanted   names one host
/// @param interval of the recording, in seconds: reports are not read more closely
/// @return whether samples were left out
/// @throws std::runtime_error if the recording cannot be read
bool find_recorded(const std::string& path, const sample_query& wanted, double interval,
                   sample_series& into);

} // namespace exporter

#endif
