# Makes the documents' pages at their place QUARLO_SITE in an installation. Others can read them, whatever root's umask
# is.
execute_process(COMMAND sh -c "umask 022 && exec \"$@\"" sh
    ${CMAKE_CURRENT_LIST_DIR}/../site/make_site.py $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${QUARLO_SITE}
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "The pages of the documents cannot be made. They need python3, python3-markdown-it and doxygen")
endif()
