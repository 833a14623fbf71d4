# What the scripts share: where the project is, and how packages get onto the machine. Sourced, with bash.

cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."

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
    sudo env DEBIAN_FRONTEND=noninteractive apt-get "$@"
  fi
}

# What apt-get would have to remove to install these packages. REQUIRES: the package lists are there (update_lists).
removed_for() {
  apt-get -s install --no-install-recommends "$@" | grep -E '^(Remv|Purg) ' || true
}

# Fetches the package lists, once in a run.
lists_are_new=
update_lists() {
  [ -n "$lists_are_new" ] || apt -qq update
  lists_are_new=1
}

# Whether one of the packages is missing.
is_any_missing() {
  local package
  for package in "$@"; do
    is_installed "$package" || return 0
  done
  return 1
}

# Says what to do where packages are missing and nobody can install them.
require_root_or_sudo() {
  [ "$(id -u)" = 0 ] || command -v sudo >/dev/null || fail "Packages are missing, and there is no sudo to install them with. As root, run:
  apt-get install --no-install-recommends $*"
}

# Installs the packages that are missing, and says so. apt-get refuses where it would have to remove one.
install_packages() {
  is_any_missing "$@" || return 0
  require_root_or_sudo "$@"
  update_lists
  echo "Installing with apt-get what is missing of: $*"
  apt -qq -y install --no-install-recommends --no-remove "$@" >/dev/null ||
    fail "apt-get could not install: $*"
}

# Configures and builds a preset, or only the given targets of it, quietly unless it fails.
build_preset() {
  local preset=$1 log
  shift
  log=$(mktemp)
  if cmake --preset "$preset" >"$log" 2>&1 && cmake --build "build/$preset" ${1+--target "$@"} >>"$log" 2>&1; then
    rm "$log"
  else
    tail -n 60 "$log" >&2
    rm "$log"
    return 1
  fi
}
