#!/bin/sh
# Builds the library with the platform's own log library in place of the fallback and looks for our lines
# in what that library prints.
# Usage: platform_liblog.sh SOURCE_DIR WORK_DIR
set -eu
mkdir -p "$2"
cd "$2"
cmake -S "$1" -B build -G Ninja -DMONCL_PLATFORM_LOG=liblog -DBUILD_SHARED_LIBS=ON \
    -DMONCL_BUILD_PROGRAMS=OFF -DMONCL_BUILD_TESTS=OFF >/dev/null
cmake --build build >/dev/null
cat >program.cpp <<'EOF'
#include "client_comm.h"
int main() {
    client_comm connection("no such address", 1);
    const int result = connection.connect_to_server();
    client_comm::client_id = 9; // which the destructor gives back
    return result == -3 ? 0 : 1;
}
EOF
${CXX:-c++} -std=c++17 -I"$1/include" -I"$1/client/include" program.cpp -Lbuild -lmoncl \
    -Wl,-rpath,"$PWD/build" -Wl,-rpath-link,"$(dirname "$(find /usr/lib -path '*android/liblog.so' | head -n 1)")" -o program
ANDROID_LOG_TAGS='*:v' ./program 2>said
cat said
grep -q '^MONCL_COMM E .* zmq_connect error, Invalid argument$' said
grep -q '^MONCL_COMM I .* Client back id 9$' said
