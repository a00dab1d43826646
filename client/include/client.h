// Every parser and its records: what the answers of the server decode into.
//
//     sys_info.h     cpu_freq_parser, cpu_possible_parser, version_parser
//     cpu_stat.h     cpus_stats_parser
//     interrupt.h    interrupt_parser
//     perf_stat.h    perf_stat_parser
//     process.h      process_stat_parser, process_io_parser, process_all_parser
//     meminfo.h      meminfo_parser
//     peri.h         block_stat_parser, partition_parser, thermal_parser, cooling_parser,
//                    all_thermal_parser, ion_info_parser
//     net_stat.h     net_stat_parse
//     nnu_ratio.h    nnu_ratio_parser
//     vio_info.h     isp_parser, pym_parser, cim_parser, gdc_parser, vio_info_parser
//
// A parser keeps the records of its last decode and, where a rate or a share needs two samples,
// those of the decode before. None has a lock: a parser is used under the request lock of the
// manager that owns it. A routine that takes `unsigned char*` is given an answer's payload: text up
// to its first NUL, or records of fixed layout. It keeps no pointer into the payload unless its
// description says so.
#ifndef MONCL_CLIENT_H
#define MONCL_CLIENT_H

#include "cpu_stat.h"
#include "interrupt.h"
#include "meminfo.h"
#include "net_stat.h"
#include "nnu_ratio.h"
#include "perf_stat.h"
#include "peri.h"
#include "process.h"
#include "sys_info.h"
#include "vio_info.h"

#endif
