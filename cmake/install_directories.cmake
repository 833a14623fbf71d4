# Makes those QUARLO_DIRECTORIES of an installation that are missing. Others can read what root installs, whatever root's
# umask is, which CMake would apply. A directory that is there stays as it is.
list(TRANSFORM QUARLO_DIRECTORIES PREPEND "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/")
execute_process(COMMAND sh -c "umask 022 && mkdir -p \"$@\"" sh ${QUARLO_DIRECTORIES} COMMAND_ERROR_IS_FATAL ANY)
