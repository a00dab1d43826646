# Keeps the library small: speed where speed is wanted, size everywhere else, and in the shared library
# nothing that no program can use. Sanitized builds and Debug builds are left as they are.
#
# Bytes of the shared library in a Release build of GCC 12, each step on top of those before it. On
# 64-bit Arm the file moves in steps of 64 KB, so its loaded sections say more (`size`).
#
#                                                  x86-64 stripped     64-bit Arm loaded
#     none of this                                         290,744               269,993
#     -Os except for decoding, sections collected          204,864               196,992
#     version script                                       192,480               185,817
#     -fno-rtti                                            184,288               178,548
#     functions bound when it is linked                    179,104               171,924
#     link-time optimisation                               166,832               155,444
#     segments that share pages                            162,736               155,444
#
# Encrypted connections came after that; with them, and with private functions hidden, the two are
# 162,768 and 155,770.
if(MONCL_SANITIZE)
  return()
endif()
include(CheckIPOSupported)
include(CheckLinkerFlag)

# Decoding is what a front end waits for: these keep the level of the build, all others are compiled for
# size. The interrupt table is as fast with -O2 as with -O3, and smaller.
set(moncl_hot_sources cpu_stat_parse meminfo_parse process_parse)
foreach(source IN LISTS moncl_sources)
  cmake_path(GET source STEM name)
  set(level -Os)
  if(name STREQUAL interrupt_parse)
    set(level -O2)
  endif()
  if(NOT name IN_LIST moncl_hot_sources)
    set_property(SOURCE ${source} APPEND PROPERTY COMPILE_OPTIONS $<$<NOT:$<CONFIG:Debug>>:${level}>)
  endif()
endforeach()
target_compile_options(moncl PRIVATE -ffunction-sections -fdata-sections)
if(NOT BUILD_SHARED_LIBS)
  return()
endif()

# Only control blocks of shared pointers have type information here, and nobody asks them for it.
target_compile_options(moncl PRIVATE $<$<NOT:$<CONFIG:Debug>>:-fno-rtti>)

# Adds a link option if the linker has it.
function(moncl_link_small name)
  list(JOIN ARGN "," option)
  check_linker_flag(CXX "LINKER:${option}" MONCL_LINKER_HAS_${name})
  if(MONCL_LINKER_HAS_${name})
    target_link_options(moncl PRIVATE $<$<NOT:$<CONFIG:Debug>>:LINKER:${option}>)
  endif()
endfunction()

# Instances of the standard library's templates ignore the hidden visibility of this library's files.
moncl_link_small(VERSION_SCRIPT --version-script ${CMAKE_CURRENT_LIST_DIR}/moncl_hidden.map)
moncl_link_small(GC_SECTIONS --gc-sections)
# Functions of the library are bound to each other when it is linked, except the log, which a program may
# replace. Variables are not: a program may have its own copy of them, for which the library must look.
moncl_link_small(SYMBOLIC -Bsymbolic-functions --dynamic-list-data
                 --dynamic-list=${CMAKE_CURRENT_LIST_DIR}/moncl_replaceable.list)

# Segments share pages, instead of each being filled up to one.
moncl_link_small(SHARED_PAGES -z noseparate-code)

check_ipo_supported(RESULT MONCL_LINK_TIME_OPTIMISATION LANGUAGES CXX OUTPUT ignored)
if(MONCL_LINK_TIME_OPTIMISATION)
  set_target_properties(moncl PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON INTERPROCEDURAL_OPTIMIZATION_DEBUG OFF)
  # As one unit with all others, reading a number is no longer inlined for a status line, which then takes
  # a tenth longer.
  set_property(SOURCE ${PROJECT_SOURCE_DIR}/client/parser/process_parse.cpp APPEND PROPERTY COMPILE_OPTIONS -fno-lto)
  # Link-time optimisation would make the weak fallback of the log a strong one.
  if(MONCL_PLATFORM_LOG STREQUAL fallback)
    set_property(SOURCE platform/android_log.cpp APPEND PROPERTY COMPILE_OPTIONS -Os -fno-lto)
  endif()
endif()
