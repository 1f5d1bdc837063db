# Toolchain file: a 32-bit little-endian machine. Its programs run on any x86-64 kernel; the loader and the C
# library are those of Debian's cross compiler, so that nothing of that architecture needs to be installed.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
set(loader "-Wl,--dynamic-linker=/usr/i686-linux-gnu/lib/ld-linux.so.2 -Wl,-rpath,/usr/i686-linux-gnu/lib")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${loader}")
