// The texts that decoding is timed on, of the kernel's layout.
#ifndef MONCL_BENCH_TEXTS_H
#define MONCL_BENCH_TEXTS_H

#include <string>

/// A CPU-time table of @p lines lines, the total's included.
std::string cpu_table(int lines);
/// An interrupt table of @p cpus columns and @p lines lines.
std::string interrupt_table(int cpus, int lines);
/// One process's status line.
std::string process_status();
/// One process's I/O accounting.
std::string process_io_text();
/// The memory figures of a current kernel.
std::string memory_text();

#endif
