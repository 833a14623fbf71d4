# Static programs for musl, with Debian's musl-tools: C++ without its library, whose headers serve all the same.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${CMAKE_HOST_SYSTEM_PROCESSOR})
set(CMAKE_CXX_COMPILER musl-gcc)  # knows C++ by a file's name, and links no library of it
set(CMAKE_CXX_STANDARD_LIBRARIES "")

# musl-gcc looks into no other directory than musl's, which has no headers of the kernel.
set(multiarch ${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-gnu)
set(kernel_headers ${CMAKE_CURRENT_LIST_DIR}/../build/kernel-headers)
file(MAKE_DIRECTORY ${kernel_headers})
file(CREATE_LINK /usr/include/linux ${kernel_headers}/linux SYMBOLIC)
file(CREATE_LINK /usr/include/asm-generic ${kernel_headers}/asm-generic SYMBOLIC)
file(CREATE_LINK /usr/include/${multiarch}/asm ${kernel_headers}/asm SYMBOLIC)
set(CMAKE_CXX_FLAGS_INIT "-include ${CMAKE_CURRENT_LIST_DIR}/musl_headers.h -isystem /usr/include/c++/12 -isystem /usr/include/${multiarch}/c++/12 -isystem ${kernel_headers}")
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
