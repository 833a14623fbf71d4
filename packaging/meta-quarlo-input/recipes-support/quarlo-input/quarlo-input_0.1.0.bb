SUMMARY = "Mouse, keyboard and infrared remote as one stream of events"

# None has been chosen yet: until one is, nobody but the authors may pass it on.
LICENSE = "CLOSED"

# This layer is a part of the sources.
inherit externalsrc
EXTERNALSRC = "${@os.path.abspath(d.expand('${THISDIR}/../../../..'))}"
EXTERNALSRC_SYMLINKS = ""

inherit cmake

# Without Python there are no manual pages, for which the program would have to run here.
EXTRA_OECMAKE = "-DQUARLO_BUILD_TESTS=OFF -DCMAKE_DISABLE_FIND_PACKAGE_Python3=ON"

PACKAGECONFIG ??= "program screen time64"
PACKAGECONFIG[program] = "-DQUARLO_BUILD_TOOLS=ON,-DQUARLO_BUILD_TOOLS=OFF,cli11 nlohmann-json"
PACKAGECONFIG[screen] = "-DCMAKE_DISABLE_FIND_PACKAGE_Curses=OFF,-DCMAKE_DISABLE_FIND_PACKAGE_Curses=ON,ncurses"
PACKAGECONFIG[time64] = "-DQUARLO_64_BIT_TIME=ON,-DQUARLO_64_BIT_TIME=OFF"

# The libraries are static, so a device needs the program alone.
ALLOW_EMPTY:${PN} = "1"
FILES:${PN} += "${datadir}/bash-completion ${datadir}/zsh"
