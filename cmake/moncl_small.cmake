# Keeps the library small: speed where speed is wanted, size everywhere else, and in the shared library
# nothing that no program can use. Sanitized builds and Debug builds are left as they are.
#
# Bytes of the shared library in a Release build of GCC 12, each step on top of those before it. On
# 64-bit Arm the file moves in steps of 64 KB, so its loaded sections say more (`size`).
#
#                                                x86-64, stripped    64-bit Arm, loaded
#     none of this                                         290,728               269,439
#     -Os except for decoding, sections collected          208,960               198,714
#     -O2 for decoding, in place of -O3                    192,576               187,042
#     version script                                       180,192               176,294
#     -fno-rtti                                            176,096               169,009
#     functions bound when it is linked                    166,816               162,399
#     link-time optimisation                               150,416               143,281
#
# Segments that share pages (-z noseparate-code) gain nothing.
if(MONCL_SANITIZE)
  return()
endif()
include(CheckIPOSupported)
include(CheckLinkerFlag)

# Decoding is what a front end waits for: these keep the level of the build, all others are compiled for
# size. In a shared library they get -O2: -O3 writes the reading of a number out at each of its calls.
set(moncl_hot_sources cpu_stat_parse interrupt_parse meminfo_parse process_parse)
foreach(source IN LISTS moncl_sources)
  cmake_path(GET source STEM name)
  if(NOT name IN_LIST moncl_hot_sources)
    set_property(SOURCE ${source} APPEND PROPERTY COMPILE_OPTIONS $<$<NOT:$<CONFIG:Debug>>:-Os>)
  elseif(BUILD_SHARED_LIBS)
    set_property(SOURCE ${source} APPEND PROPERTY COMPILE_OPTIONS $<$<NOT:$<CONFIG:Debug>>:-O2>)
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

check_ipo_supported(RESULT MONCL_LINK_TIME_OPTIMISATION LANGUAGES CXX OUTPUT ignored)
if(MONCL_LINK_TIME_OPTIMISATION)
  set_target_properties(moncl PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON INTERPROCEDURAL_OPTIMIZATION_DEBUG OFF)
  # Link-time optimisation would make the weak fallback of the log a strong one.
  if(MONCL_PLATFORM_LOG STREQUAL fallback)
    set_property(SOURCE platform/android_log.cpp APPEND PROPERTY COMPILE_OPTIONS -Os -fno-lto)
  endif()
endif()
