// Lists of CPUs as the kernel writes them, such as "0-3,5".
#ifndef MONSRV_CPU_LIST_H
#define MONSRV_CPU_LIST_H

#include <string_view>
#include <vector>

namespace monsrv {

/// The CPUs of @p list, at most 8192 of them; those before a fault if it has one.
std::vector<int> read_cpu_list(std::string_view list);

} // namespace monsrv

#endif
