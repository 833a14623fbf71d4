# find_package(quarlo-input): quarlo::input, quarlo::input_loop, quarlo::stderr_logging, quarlo::sim. They need nothing else.
include(${CMAKE_CURRENT_LIST_DIR}/quarlo-input-targets.cmake)
