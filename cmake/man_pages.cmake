# Makes the manual pages of quarlo-input and of each of its commands from their help texts, in the present folder.
# PROGRAM is the command that runs it, with an emulator where it needs one; AWK, SCRIPT and VERSION say how.
cmake_minimum_required(VERSION 3.25)

function(make_page page command)
  execute_process(COMMAND ${PROGRAM} ${command} --help
                  COMMAND ${AWK} -v command=${command} -v version=${VERSION} -v date=${date} -f ${SCRIPT}
                  OUTPUT_FILE ${page}.1 COMMAND_ERROR_IS_FATAL ANY)
endfunction()

execute_process(COMMAND ${PROGRAM} --help OUTPUT_VARIABLE help RESULT_VARIABLE result ERROR_QUIET)
if(NOT result STREQUAL 0)
  message("No manual pages: they are made from what quarlo-input says, and it does not run here.")
  return()
endif()
string(TIMESTAMP date "%Y-%m-%d" UTC)
make_page(quarlo-input "")
string(REGEX MATCH "\nSubcommands:(\n[^\n]+)+" commands "${help}")
string(REGEX MATCHALL "\n  [a-z-]+" commands "${commands}")
foreach(command IN LISTS commands)
  string(STRIP "${command}" command)
  make_page(quarlo-input-${command} ${command})
endforeach()
