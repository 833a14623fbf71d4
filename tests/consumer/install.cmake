# Installs BUILD to one place and moves it to another, INSTALLED: nothing may remember where it was.
file(REMOVE_RECURSE ${INSTALLED} ${INSTALLED}-first)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${INSTALLED}-first OUTPUT_QUIET
                COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${INSTALLED}-first ${INSTALLED})
