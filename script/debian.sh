# A new Debian 12 to try things in: a root of its own that debootstrap has made. Sourced, with bash, after lib.sh. Needs
# root, debootstrap, and what apt-get of this machine downloads from. The roots are below build/bare.

[ "$(id -u)" = 0 ] || fail "script/${0##*/} makes a root of a new Debian, which only root can"

# Nobody else sees what is mounted here, so that nobody who removes a root removes what is mounted in it; it goes with
# the last process of the script, however that ends.
[ -n "${HAS_OWN_MOUNTS-}" ] || HAS_OWN_MOUNTS=1 exec unshare --mount "$PWD/script/${0##*/}" "$@"

mounted=()
unmount() {
  local folder
  for folder in "${mounted[@]}"; do umount -l "$folder"; done
  mounted=()
}

new_debian=build/bare/new

# Makes the Debian that others are copies of, once.
make_new_debian() {
  local mirror
  install_packages debootstrap
  # What this machine downloads Debian from.
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Label: Debian' 'Codename: bookworm' | head -n 1)
  [ -n "$mirror" ] || fail "apt-get has no list of Debian bookworm's packages: run apt-get update"
  [ ! -e $new_debian/done ] || return 0
  echo "== A new Debian in $new_debian"
  rm -rf $new_debian
  mkdir -p $new_debian
  debootstrap --variant=minbase --include=ca-certificates,git bookworm $new_debian/root "$mirror" >$new_debian/log ||
    fail "debootstrap failed: see $new_debian/log"
  touch $new_debian/done
}

# How this machine reaches its sources of packages, proxies included, and whom npm is to believe.
copy_package_configuration() {
  local root=$1
  rm -rf "$root/etc/apt"/sources.list{,.d}
  cp -a /etc/apt/{sources.list*,apt.conf.d,trusted.gpg.d,keyrings} "$root/etc/apt" 2>/dev/null || true
  cp -aL /etc/resolv.conf /etc/hosts "$root/etc"
  [ -z "${NODE_EXTRA_CA_CERTS-}" ] || cp -L --parents "$NODE_EXTRA_CA_CERTS" "$root"
}

# A copy of the new Debian.
copy_new_debian() {
  rm -rf "${1:?}"
  cp -a $new_debian/root "$1"
  copy_package_configuration "$1"
}

# Lets a root reach the kernel, until unmount. It is a mount itself, as a machine's is: unshare needs that.
mount_in() {
  local folder
  mount --bind "$1" "$1"
  mounted=("$PWD/$1")
  for folder in proc dev dev/pts; do
    mount --bind "/$folder" "$1/$folder"
    mounted=("$PWD/$1/$folder" "${mounted[@]}")
  done
}

# Runs a command in a root, with nothing of this machine's environment but how it reaches the network.
run_in() {
  local root=$1
  shift
  env -i HOME=/root PATH="/usr/sbin:/usr/bin:/sbin:/bin" DEBIAN_FRONTEND=noninteractive \
    ${http_proxy+http_proxy="$http_proxy"} ${https_proxy+https_proxy="$https_proxy"} \
    ${NODE_EXTRA_CA_CERTS+NODE_EXTRA_CA_CERTS="$NODE_EXTRA_CA_CERTS"} \
    chroot "$root" "$@" </dev/null
}
