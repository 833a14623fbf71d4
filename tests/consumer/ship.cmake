# Makes in BUILD what the preset package makes with TOOLCHAIN, but the program, and installs it to INSTALLED.
execute_process(COMMAND ${CMAKE_COMMAND} --preset package -B ${BUILD} --toolchain ${TOOLCHAIN} -DQUARLO_BUILD_TOOLS=OFF
                COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD} COMMAND_ERROR_IS_FATAL ANY)
include(${CMAKE_CURRENT_LIST_DIR}/install.cmake)
