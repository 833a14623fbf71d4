# CPack runs this before it makes the packages: what Debian wants in each one, where and as it wants it.
find_program(gzip gzip REQUIRED)
set(sources ${CMAKE_CURRENT_LIST_DIR}/..)

# Read by CPack when it packs.
if(CPACK_QUARLO_SOURCE_DATE)
  set(ENV{SOURCE_DATE_EPOCH} ${CPACK_QUARLO_SOURCE_DATE})
endif()

function(compress)
  execute_process(COMMAND ${gzip} --best --no-name ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(add_documents share package)
  set(documents ${share}/doc/${package})
  file(COPY ${sources}/packaging/copyright DESTINATION ${documents})
  file(COPY_FILE ${sources}/packaging/changelog ${documents}/changelog.Debian)
  file(COPY_FILE ${sources}/CHANGELOG.md ${documents}/changelog)
  compress(${documents}/changelog.Debian ${documents}/changelog)
endfunction()

# Of an older version, which would be installed with these.
file(GLOB older ${CPACK_PACKAGE_DIRECTORY}/*.deb)
if(older)
  file(REMOVE ${older})
endif()

# The documents of both stay side by side, as their links have it.
set(dev ${CPACK_TEMPORARY_DIRECTORY}/dev/usr/share)
file(REMOVE ${dev}/doc/quarlo-input/CHANGELOG.md)
add_documents(${dev} libquarlo-input-dev)

set(program ${CPACK_TEMPORARY_DIRECTORY}/program/usr/share)
file(GLOB pages ${program}/man/man1/*.1)
if(NOT pages)
  message(FATAL_ERROR "The package has no manual pages: to make them, the build needs python3")
endif()
compress(${pages})
file(RENAME ${program}/zsh/site-functions ${program}/zsh/vendor-completions)
add_documents(${program} quarlo-input)

set(doc ${CPACK_TEMPORARY_DIRECTORY}/doc/usr/share)
file(MAKE_DIRECTORY ${doc}/doc-base)
file(COPY_FILE ${sources}/packaging/doc-base ${doc}/doc-base/quarlo-input-doc.quarlo-input)
add_documents(${doc} quarlo-input-doc)

# Whatever the umask is where this is packed.
file(CHMOD_RECURSE ${CPACK_TEMPORARY_DIRECTORY} DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
file(GLOB documents ${dev}/doc/*/* ${program}/doc/*/* ${doc}/doc/*/* ${doc}/doc-base/*)
file(CHMOD ${documents} FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
