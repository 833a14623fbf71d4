# What the scripts share: where the project is, and how packages get onto the machine. Sourced, with bash.

cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() {
  echo "$*" >&2
  exit 1
}

is_installed() {
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# Runs apt-get as root.
apt() {
  if [ "$(id -u)" = 0 ]; then
    DEBIAN_FRONTEND=noninteractive apt-get "$@"
  else
    sudo DEBIAN_FRONTEND=noninteractive apt-get "$@"
  fi
}

# Whether apt-get would have to remove something to install these packages.
would_remove() {
  apt-get -s install --no-install-recommends "$@" 2>/dev/null | grep '^Remv'
}

# Installs the packages that are missing, and says so. Never removes one.
install_packages() {
  local missing=() package removed
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} = 0 ] && return
  if [ "$(id -u)" != 0 ] && ! command -v sudo >/dev/null; then
    fail "These packages are missing, and there is no sudo to install them with. As root, run:
  apt-get install --no-install-recommends ${missing[*]}"
  fi
  echo "Installing with apt-get: ${missing[*]}"
  apt -qq update
  removed=$(would_remove "${missing[@]}" || true)
  [ -z "$removed" ] || fail "apt-get would remove packages to install ${missing[*]}, so nothing was done:
$removed"
  apt -qq -y install --no-install-recommends "${missing[@]}" >/dev/null
}

# Configures (once) and builds a preset, quietly unless it fails.
build_preset() {
  local preset=$1 log
  shift
  log=$(mktemp)
  if { [ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" "$@"; } >"$log" 2>&1 &&
    cmake --build "build/$preset" >>"$log" 2>&1; then
    rm "$log"
  else
    tail -n 60 "$log" >&2
    rm "$log"
    return 1
  fi
}
