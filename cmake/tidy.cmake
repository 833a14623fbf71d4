# The target tidy: clang-tidy, on each source that it has not yet seen as it is, with the headers and rules that there are.
find_program(QUARLO_CLANG_TIDY clang-tidy-14)
if(NOT QUARLO_CLANG_TIDY)
  return()
endif()

set(checked ${CMAKE_CURRENT_BINARY_DIR}/tidy)
file(GLOB_RECURSE sources CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}
  input/*.cc logging/*.cc recording/*.cc sim/*.cc tools/*.cc)
foreach(source IN LISTS sources)
  set(stamp ${checked}/${source}.stamp)
  cmake_path(GET stamp PARENT_PATH folder)
  file(MAKE_DIRECTORY ${folder})
  add_custom_command(OUTPUT ${stamp}
    COMMAND ${QUARLO_CLANG_TIDY} -p ${CMAKE_BINARY_DIR} --quiet ${source}
    COMMAND ${CMAKE_CXX_COMPILER} -std=c++17 -I${CMAKE_CURRENT_SOURCE_DIR} -I${CMAKE_CURRENT_BINARY_DIR}/tools
            -MM -MT ${stamp} -MF ${stamp}.d ${CMAKE_CURRENT_SOURCE_DIR}/${source}
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}
    DEPENDS ${source} ${CMAKE_CURRENT_SOURCE_DIR}/.clang-tidy
    DEPFILE ${stamp}.d
    COMMENT "Checking ${source}"
    VERBATIM)
  list(APPEND stamps ${stamp})
endforeach()
add_custom_target(tidy DEPENDS ${stamps})
