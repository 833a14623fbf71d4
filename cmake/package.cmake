# Debian packages of what is installed: `cmake --build build/package --target package`, with the preset package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_CONTACT "quarlo-input developers <developers@quarlo-input.invalid>")
set(CPACK_COMPONENTS_ALL dev doc program)
set(CPACK_QUARLO_SOURCE_DATE "${quarlo_source_date}")  # for the script
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian_documents.cmake)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SOURCE quarlo-input)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libquarlo-input-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libc6-dev")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "quarlo-input, quarlo-input-doc")
set(CPACK_DEBIAN_DEV_DESCRIPTION "mouse, keyboard and infrared remote as one stream of events
A C++17 class for TV and set-top devices that reads evdev nodes and the socket
of the LIRC daemon, and hands an application one event per call. It needs
nothing but libc, one thread and no heap.
.
With it come a back end for its logging, and a simulated machine on which an
application can test its own input loop without hardware.")

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME quarlo-input)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SUGGESTS "evemu-tools, gnuplot-nox, libquarlo-input-dev, lirc, quarlo-input-doc")
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION "show, record and replay mouse, keyboard and infrared remote
quarlo-input shows what the input devices of this machine send, says which
ones are found and why others are not, and records and replays what they sent.
It also finds out which timeouts suit a remote, and lists what each key gives.
.
It reads evdev nodes and the socket of the LIRC daemon in the same way as
applications that are built with libquarlo-input-dev.")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME quarlo-input-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_PACKAGE_SUGGESTS "quarlo-input, libquarlo-input-dev")
set(CPACK_DEBIAN_DOC_DESCRIPTION "documents of quarlo-input, to read in a browser
How to use the reader of mouse, keyboard and infrared remote in an application,
how to bring up a device, what each key gives, and the C++ interface.
.
The pages have a search that needs no server:
/usr/share/doc/quarlo-input/html/index.html.")

include(CPack)
