# When what is built says it was made, in seconds since 1970: at the last commit, so that the same sources make the same
# packages, to the byte; or at what the variable SOURCE_DATE_EPOCH says. Empty without either: then it is now.
set(quarlo_source_date "$ENV{SOURCE_DATE_EPOCH}")
if(NOT quarlo_source_date)
  execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
                  OUTPUT_VARIABLE quarlo_source_date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
