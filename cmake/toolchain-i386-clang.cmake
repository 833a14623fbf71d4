# i386 programs on a 64-bit Debian, which run there without further packages: they find their loader and libraries among
# those of the cross compiler (libc6-i386-cross, libstdc++6-i386-cross). The old kind of rpath is one for the libraries'
# own libraries, too.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_CXX_COMPILER clang++-14)
set(CMAKE_CXX_COMPILER_TARGET i686-linux-gnu)
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_C_COMPILER_TARGET i686-linux-gnu)
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-fuse-ld=lld -Wl,--dynamic-linker=/usr/i686-linux-gnu/lib/ld-linux.so.2 -Wl,--disable-new-dtags,-rpath,/usr/i686-linux-gnu/lib")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
