# Whether docs/tuning.svg is what PROGRAM draws, as docs/tuning.md says. PLACE is for what is drawn, ROOT the project's.
file(MAKE_DIRECTORY ${PLACE})
execute_process(COMMAND ${PROGRAM} tune --loop poll --plot ${PLACE}/tuning.svg OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(READ ${PLACE}/tuning.svg drawn)
file(READ ${ROOT}/docs/tuning.svg kept)
if(NOT drawn STREQUAL kept)
  message(FATAL_ERROR "docs/tuning.svg is stale: draw it again: quarlo-input tune --loop poll --plot docs/tuning.svg")
endif()
