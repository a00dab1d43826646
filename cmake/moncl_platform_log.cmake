# What the library logs with: our fallback, or the platform's own library. Debian has that for hosts too,
# outside the usual folders.
if(MONCL_PLATFORM_LOG STREQUAL fallback)
  target_sources(moncl PRIVATE platform/android_log.cpp)
elseif(MONCL_PLATFORM_LOG STREQUAL liblog)
  find_path(MONCL_LIBLOG_INCLUDE_DIR android/log.h PATH_SUFFIXES android REQUIRED)
  find_library(MONCL_LIBLOG_LIBRARY log PATH_SUFFIXES android REQUIRED)
  target_include_directories(moncl PRIVATE ${MONCL_LIBLOG_INCLUDE_DIR})
  target_link_libraries(moncl PRIVATE ${MONCL_LIBLOG_LIBRARY})
else()
  message(FATAL_ERROR "MONCL_PLATFORM_LOG is fallback or liblog, not '${MONCL_PLATFORM_LOG}'")
endif()
