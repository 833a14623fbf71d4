# ARM programs (hard float, Thumb-2), which QEMU's user mode runs on the host with the cross compiler's libraries
# (libc6-armhf-cross, libstdc++6-armhf-cross).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++-12)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc-12)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)  # a note about an ABI that nothing here has used
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
