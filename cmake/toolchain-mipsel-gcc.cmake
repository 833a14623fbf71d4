# MIPS programs (little-endian, 32 bits), which QEMU's user mode runs on the host with the cross compiler's libraries
# (libc6-mipsel-cross, libstdc++6-mipsel-cross).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++-12)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc-12)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel -L /usr/mipsel-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
