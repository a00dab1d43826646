// Marks what libmoncl exports; everything else stays inside a library built with hidden visibility.
#ifndef MONCL_EXPORT_H
#define MONCL_EXPORT_H

#define MONCL_API __attribute__((visibility("default")))

/// Marks private functions of exported classes: no program can call them.
#define MONCL_LOCAL __attribute__((visibility("hidden")))

#endif
