# What `cmake --install` puts where. Of its components, dev is what an application builds with, and program is
# quarlo-input with what belongs to it. The third, doc, is made only where it is asked for: the documents as pages.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# To call before what installs into these directories of a component.
function(quarlo_install_directories component)
  install(CODE "set(QUARLO_DIRECTORIES \"${ARGN}\")" COMPONENT ${component})
  install(SCRIPT ${CMAKE_CURRENT_SOURCE_DIR}/cmake/install_directories.cmake COMPONENT ${component})
endfunction()

# ---- dev ----------------------------------------------------------------------------------------

set(include_folder ${CMAKE_INSTALL_INCLUDEDIR}/quarlo-input)
set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/quarlo-input)
set(pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
quarlo_install_directories(dev ${include_folder}/input ${include_folder}/logging ${include_folder}/msg
  ${include_folder}/sim ${cmake_folder} ${pkgconfig_folder} ${CMAKE_INSTALL_DOCDIR})

set_target_properties(quarlo_input PROPERTIES EXPORT_NAME input)
set_target_properties(quarlo_input_loop PROPERTIES EXPORT_NAME input_loop)
set_target_properties(quarlo_stderr_logging PROPERTIES EXPORT_NAME stderr_logging)
set_target_properties(quarlo_sim PROPERTIES EXPORT_NAME sim)
install(TARGETS quarlo_input quarlo_input_loop quarlo_stderr_logging quarlo_sim EXPORT quarlo
  ARCHIVE COMPONENT dev
  FILE_SET HEADERS DESTINATION ${include_folder} COMPONENT dev
  INCLUDES DESTINATION ${include_folder})  # for users of a CMake that knows no file sets

install(EXPORT quarlo NAMESPACE quarlo:: FILE quarlo-input-targets.cmake DESTINATION ${cmake_folder} COMPONENT dev)
write_basic_package_version_file(quarlo-input-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES cmake/quarlo-input-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/quarlo-input-config-version.cmake
  DESTINATION ${cmake_folder} COMPONENT dev)

# Installs what pkg-config says of some libraries (the users of a library before it), from its own place, so that the
# whole can be moved.
function(quarlo_install_pkg_config name targets description)
  set(NAME ${name})
  set(DESCRIPTION ${description})
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
             OUTPUT_VARIABLE PREFIX)
  set(INCLUDEDIR "\${prefix}")
  set(LIBDIR "\${prefix}")
  cmake_path(APPEND INCLUDEDIR ${include_folder})
  cmake_path(APPEND LIBDIR ${CMAKE_INSTALL_LIBDIR})
  set(CFLAGS "-I\${includedir}")
  set(LIBS)
  foreach(target IN LISTS targets)
    list(APPEND LIBS -l${target})
    get_target_property(options ${target} INTERFACE_LINK_OPTIONS)
    if(options)
      list(APPEND LIBS ${options})
    endif()
    get_target_property(definitions ${target} INTERFACE_COMPILE_DEFINITIONS)
    if(definitions)
      list(TRANSFORM definitions PREPEND -D)
      list(APPEND CFLAGS ${definitions})
    endif()
  endforeach()
  list(JOIN CFLAGS " " CFLAGS)
  string(REPLACE "LINKER:" "-Wl," LIBS "${LIBS}")
  list(JOIN LIBS " " LIBS)
  configure_file(cmake/pkg-config.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${pkgconfig_folder} COMPONENT dev)
endfunction()

quarlo_install_pkg_config(quarlo-input "quarlo_input_loop;quarlo_input"
  "Mouse, keyboard and infrared remote on Linux, as one stream of events")
quarlo_install_pkg_config(quarlo-stderr-logging quarlo_stderr_logging
  "Logging to standard error, for users of quarlo-input that have no other")
quarlo_install_pkg_config(quarlo-sim quarlo_sim
  "A simulated Linux machine to test input code on")

# What those read who bring up a device, with or without an application. All other documents are for developers.
set(program_documents behaviour.md bring-up.md doctor.md json-schema.json keymap.md monitor.md permissions.md report.md
  report.png tuning.md tuning.svg tuning-page.png)

install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
list(JOIN program_documents "|" program_pattern)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev
  FILES_MATCHING REGEX "\\.(md|svg|png|json|cc|h)$" REGEX "/docs/(${program_pattern})$" EXCLUDE)

# ---- program ------------------------------------------------------------------------------------

if(QUARLO_BUILD_TOOLS)
  set(bash_folder ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  set(zsh_folder ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  quarlo_install_directories(program ${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_MANDIR}/man1 ${bash_folder} ${zsh_folder}
    ${CMAKE_INSTALL_DOCDIR}/docs)
  install(TARGETS quarlo-input RUNTIME COMPONENT program)
  install(DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/tools/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT program)
  install(FILES tools/completion.bash RENAME quarlo-input DESTINATION ${bash_folder} COMPONENT program)
  install(FILES tools/completion.zsh RENAME _quarlo-input DESTINATION ${zsh_folder} COMPONENT program)
  list(TRANSFORM program_documents PREPEND docs/)
  install(FILES ${program_documents} docs/70-quarlo-input.rules docs/quarlo-input.service
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT program)
  install(DIRECTORY sessions DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT program)
endif()

# ---- doc ----------------------------------------------------------------------------------------

install(CODE "set(QUARLO_SITE ${CMAKE_INSTALL_DOCDIR}/html)" COMPONENT doc EXCLUDE_FROM_ALL)
install(SCRIPT ${CMAKE_CURRENT_SOURCE_DIR}/cmake/install_site.cmake COMPONENT doc EXCLUDE_FROM_ALL)
