# What the scripts share: where the project is, and how packages get onto the machine. Sourced, with bash.

cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."

fail() {
  echo "$*" >&2
  exit 1
}

is_installed() {
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# Runs apt-get as root. Where another process installs something, it waits for its end.
apt() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 "$@"
}

# What apt-get would have to remove to install these packages. REQUIRES: the package lists are there (update_lists).
removed_for() {
  apt-get -s install --no-install-recommends "$@" | grep -E '^(Remv|Purg) ' || true
}

# Fetches the package lists, once in a run. apt-get does not wait for the lock of these by itself.
lists_are_new=
update_lists() {
  local tries=60 problem
  [ -z "$lists_are_new" ] || return 0
  until problem=$(apt -qq update 2>&1); do
    tries=$((tries - 1))
    [ $tries != 0 ] && [[ $problem == *"/lists/lock"* ]] || fail "apt-get could not fetch the package lists: $problem"
    sleep 10
  done
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
  local problem
  is_any_missing "$@" || return 0
  require_root_or_sudo "$@"
  update_lists
  echo "Installing with apt-get what is missing of: $*"
  problem=$(apt -qq -y install --no-install-recommends --no-remove "$@" 2>&1 >/dev/null) ||
    fail "apt-get could not install: $*: ${problem//$'\n'/ }"
}

# From here on, apt-get and apt-cache know the packages of an architecture, and keep what they need in a directory: this
# machine's own lists and packages stay as they are. REQUIRES: ca-certificates, debian-archive-keyring
use_packages_of() {
  local architecture=$1 folder=$PWD/$2 mirror
  mkdir -p "$folder/lists/partial"
  # The mirror that this machine uses.
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Label: Debian' 'Codename: bookworm' | head -n 1)
  [ -n "$mirror" ] || fail "apt-get has no list of Debian bookworm's packages: run apt-get update"
  echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror bookworm main" >"$folder/sources.list"
  cat >"$folder/apt.conf" <<EOF
APT::Architecture "$architecture";
APT::Architectures { "$architecture"; };
APT::Sandbox::User "$(id -un)";
Dir::State::Lists "$folder/lists";
Dir::State::status "/dev/null";
Dir::Cache::pkgcache "";
Dir::Cache::srcpkgcache "";
Dir::Etc::sourcelist "$folder/sources.list";
Dir::Etc::sourceparts "/dev/null";
EOF
  export APT_CONFIG=$folder/apt.conf
  apt-get -qq update
}

# Downloads packages and unpacks them into a directory. Nothing is installed.
unpack_packages() {
  local folder=$PWD/$1 package
  shift
  rm -rf "$folder.packages"
  mkdir -p "$folder" "$folder.packages"
  (cd "$folder.packages" && apt-get -qq download "$@")
  for package in "$folder.packages"/*.deb; do dpkg -x "$package" "$folder"; done
  rm -rf "$folder.packages"
}

# What the compiler has compiled before, also for another build, is not compiled again.
use_compiler_cache() {
  command -v ccache >/dev/null || return 0
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache} CCACHE_BASEDIR=${CCACHE_BASEDIR-$PWD}
  # Precompiled headers can be kept, too, and messages are the same in each language that a test asks for.
  export CCACHE_SLOPPINESS=${CCACHE_SLOPPINESS-pch_defines,time_macros,locale}
}

# Keeps in a file what ninja or ctest print, and shows how far they are: in one line on a terminal, else twice a minute.
show_progress() {
  local log=$1 line shown=$SECONDS
  while IFS= read -r line; do
    printf '%s\n' "$line" >>"$log"
    [[ $line =~ ^(\[| *)([0-9]+/[0-9]+)(\]| Test) ]] || continue
    if [ -t 1 ]; then
      printf '\r   %s   \r' "${BASH_REMATCH[2]/\// of }"
    elif [ $((SECONDS - shown)) -ge 30 ]; then
      echo "   ${BASH_REMATCH[2]/\// of }"
      shown=$SECONDS
    fi
  done
}

# Configures and builds a preset, or only the given targets of it, and shows no more than progress unless it fails.
build_preset() {
  local preset=$1 log
  [ -n "$preset" ] || fail "build_preset: which preset?"
  shift
  log=$(mktemp)
  if cmake --preset "$preset" >"$log" 2>&1 &&
    cmake --build "build/$preset" ${1+--target "$@"} 2>&1 | show_progress "$log"; then
    rm "$log"
  else
    tail -n 60 "$log" >&2
    rm "$log"
    return 1
  fi
}
