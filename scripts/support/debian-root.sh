#!/usr/bin/env bash
# Debian 12 systems in folders of their own, to be sourced: what is built in one needs no more than is asked
# for there, what is installed in one is gone with it, and the system that all this runs on stays as it is.
#
# They are kept in ${XDG_CACHE_HOME:-~/.cache}/kelp-debian, which may be removed at any time.

debian_roots=${XDG_CACHE_HOME:-$HOME/.cache}/kelp-debian

# say TEXT... tells what the script does, and how long it has been running.
say() {
  echo "${0##*/}: $* ($SECONDS s)"
}

require_root() {
  if [[ $EUID -ne 0 ]]; then
    echo "${0##*/}: needs root, to make a system in a folder and to enter it: sudo $0" >&2
    return 1
  fi
  if ! unshare --mount true 2>/dev/null; then
    echo "${0##*/}: this container does not allow to mount, which is needed to enter a system in a folder" >&2
    return 1
  fi
  mkdir -p -- "$debian_roots"
  # One at a time, since they share what is kept.
  exec 9>"$debian_roots/lock"
  flock --nonblock 9 || { echo "waiting for another that uses $debian_roots" && flock 9; }
}

# in_root ROOT [FROM:TO]... -- COMMAND... runs a command in a root, with the folders FROM mounted there as TO.
# Nobody else sees these mounts, and they end with the command.
in_root() {
  cp -- /etc/resolv.conf "$1/etc/resolv.conf"
  # shellcheck disable=SC2016  # The inner shell expands these.
  unshare --mount --fork --kill-child bash -euc '
    root=$1; shift
    mount -t proc proc "$root/proc"
    mount --rbind /dev "$root/dev"
    while [[ $1 != -- ]]; do
      mkdir -p -- "$root${1##*:}"
      mount --bind -- "${1%%:*}" "$root${1##*:}"
      shift
    done
    shift
    exec chroot "$root" env -i HOME=/root LANG=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin \
      DEBIAN_FRONTEND=noninteractive "$@"
  ' in_root "$@" 9>&- </dev/null
}

# apt_in ROOT [FROM:TO]... -- ARGUMENTS... is apt-get in a root; it says something only when it fails.
apt_in() {
  local root=$1 mounts=()
  shift
  while [[ $1 != -- ]]; do
    mounts+=("$1")
    shift
  done
  shift
  in_root "$root" "${mounts[@]}" -- apt-get -qq -o Dpkg::Use-Pty=0 --yes --no-install-recommends "$@" \
    >"$root.log" 2>&1 || { cat -- "$root.log" >&2 && return 1; }
  rm -- "$root.log"
}

# make_root NAME KEY COMMAND... makes the root NAME: a small Debian, in which COMMAND, with the path of the root
# as its last argument, installs more. One that was made this month with the same KEY and command is taken as
# it is.
make_root() {
  local root=$debian_roots/$1 month key base
  month=$(date +%Y-%m)
  key="$month $2 ${*:3}"
  base=$debian_roots/base-$month.tar
  shift 2
  if [[ -e $root.key && $(<"$root.key") == "$key" ]]; then
    return 0
  fi
  echo "debian-root: making $root"
  rm -rf -- "$root.key" "$root"
  mkdir -- "$root"
  if [[ ! -e $base ]]; then
    rm -f -- "$debian_roots"/base-*.tar
    mmdebstrap --quiet --mode=root --variant=minbase bookworm "$debian_roots/base-part.tar" \
      'deb http://deb.debian.org/debian bookworm main'
    mv -- "$debian_roots/base-part.tar" "$base"
  fi
  tar --extract --file "$base" --directory "$root"
  apt_in "$root" -- update
  "$@" "$root"
  apt_in "$root" -- clean
  echo "$key" >"$root.key"
}

# install_in PACKAGES... ROOT installs packages.
install_in() {
  apt_in "${*: -1}" -- install "${@:1:$#-1}"
}
