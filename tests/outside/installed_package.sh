#!/bin/sh
# Installs the library, static and shared, and builds two outside programs against each with CMake and
# pkg-config: one that brings a log function of its own, which must win, and one that does not. The shared
# library exports what its list says, and is at most 160 KB where that was measured.
# Usage: installed_package.sh SOURCE_DIR WORK_DIR
set -eu
source=$1
work=$2
rm -rf "$work/project"
mkdir -p "$work/project"
cd "$work"
cat >project/CMakeLists.txt <<'EOF'
cmake_minimum_required(VERSION 3.25)
project(outside LANGUAGES CXX)
find_package(moncl REQUIRED)
foreach(program own_log fallback_log)
  add_executable(${program} program.cpp)
  target_link_libraries(${program} PRIVATE moncl::moncl)
endforeach()
target_compile_definitions(own_log PRIVATE OWN_LOG)
EOF
cat >project/program.cpp <<'EOF'
#include "client_comm.h"
#ifdef OWN_LOG
#include <cstdio>
extern "C" int __android_log_print(int, const char*, const char*, ...) { return std::puts("own log"); }
#endif
int main() {
    client_comm connection("no such address", 1);
    const int result = connection.connect_to_server();
    client_comm::client_id = 9; // which the library must see: its destructor gives it back
    return result == -3 ? 0 : 1;
}
EOF

for shared in OFF ON; do
    cmake -S "$source" -B "build_$shared" -G Ninja -DBUILD_SHARED_LIBS=$shared \
        -DCMAKE_BUILD_TYPE=Release \
        -DMONCL_BUILD_PROGRAMS=OFF -DMONCL_BUILD_TESTS=OFF -DCMAKE_INSTALL_PREFIX="$work/prefix_$shared" >/dev/null
    cmake --build "build_$shared" --target install >/dev/null
    cmake -S project -B "outside_$shared" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix_$shared" >/dev/null
    cmake --build "outside_$shared" >/dev/null
    test "$("outside_$shared/own_log" 2>&1 | sort -u)" = "own log"
    "outside_$shared/fallback_log" >said 2>&1
    grep -x 'E/MONCL_COMM: zmq_connect error, .*' said
    grep -x 'I/MONCL_COMM: Client back id 9' said

    pc=$(find "$work/prefix_$shared" -name moncl.pc)
    export PKG_CONFIG_PATH=${pc%/*}
    flags=$(pkg-config --cflags --libs moncl)
    ${CXX:-c++} -std=c++17 -DOWN_LOG project/program.cpp $flags -o "outside_$shared/by_pkg_config"
    test "$(LD_LIBRARY_PATH=${pc%/pkgconfig/*} "outside_$shared/by_pkg_config" 2>&1 | sort -u)" = "own log"
done

"$source/scripts/abi" --check build_ON/libmoncl.so
strip -o stripped.so build_ON/libmoncl.so
size=$(wc -c <stripped.so)
echo "The shared library has $size bytes."
case $(uname -m)/$(${CXX:-c++} --version) in
x86_64/*clang*) ;;
x86_64/*) test "$size" -le 163840 ;;
esac
