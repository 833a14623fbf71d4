# 64-bit ARM programs, for a guest of script/guest.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++-12)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc-12)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
