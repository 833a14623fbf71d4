# Packs what an application builds of the project in SOURCES: DIRECTORY.tar.xz, in which all is below a directory, as in the
# archive of a release.
file(REMOVE_RECURSE ${DIRECTORY} ${DIRECTORY}.tar.xz)
foreach(name IN ITEMS CMakeLists.txt cmake input logging meson.build meson_options.txt msg sim)
  file(COPY ${SOURCES}/${name} DESTINATION ${DIRECTORY})
endforeach()
cmake_path(GET DIRECTORY PARENT_PATH parent)
cmake_path(GET DIRECTORY FILENAME name)
execute_process(COMMAND ${CMAKE_COMMAND} -E tar cJf ${DIRECTORY}.tar.xz ${name} WORKING_DIRECTORY ${parent}
                COMMAND_ERROR_IS_FATAL ANY)
