# shellcheck shell=sh
# For scripts that work on fresh minimal installations of Debian, each in a chroot of its own. Read with
# `. scripts/machines.sh` from the repository's root, after $setup_group was set to what scripts/setup is to install. It
# takes the script's arguments, [--yes] [SUITE...], and leaves the suites: bookworm and trixie unless others are named. (A
# script that takes something else sets $arguments to what a user is told of it.) It runs the script once more, as root in
# namespaces of its own; only there it returns, and gives $machine, the functions below and those of scripts/steps.sh.
# What debootstrap made and the packages that were downloaded are kept for the next run, in
# ${XDG_CACHE_HOME:-$HOME/.cache}/ndk_utils/distributions. Everything else goes away at the end, even if this is killed:
# the processes and mounts with their namespaces, the files by a process that waits for that.

script=scripts/${0##*/}
yes=
inside=
cache=${XDG_CACHE_HOME:-$HOME/.cache}/ndk_utils/distributions
while [ $# -gt 0 ]; do
  case $1 in
    -y | --yes) yes=--yes ;;
    --cache=*) cache=${1#*=} ;; # these two are this script's own
    --in-namespaces) inside=yes ;;
    -* | *[!a-z0-9]* | '')
      echo "usage: $script [--yes] ${arguments:-[SUITE...]}" >&2
      exit 2
      ;;
    *) break ;;
  esac
  shift
done
[ $# -gt 0 ] || set -- bookworm trixie

# --- Outside: the namespaces, and what is left when they are gone ---

if [ -z "$inside" ]; then
  # shellcheck disable=SC2086,SC2154 # no option, or one; set by the script that reads this
  scripts/setup $yes "$setup_group" || exit 1
  if [ "$(id -u)" -ne 0 ]; then
    exec sudo env CI="${CI-}" "$script" --cache="$cache" "$@"
  fi

  umask 022
  mkdir -p "$cache" || exit 1
  exec 9>"$cache/lock"
  if ! flock --nonblock 9; then
    echo "$script: waiting for another run to end" >&2
    setpriv --pdeathsig KILL flock 9 || exit 1
  fi
  # The lock is held until the last process of this run has ended. Whoever gets it next removes what is left.
  work=$cache/work
  rm -rf "$work"
  mkdir "$work" || exit 1
  setsid flock "$cache/lock" rm -rf "$work" 9>&- </dev/null >/dev/null 2>&1 &

  trap 'kill -KILL "$namespaces" 2>/dev/null; exec 9>&-; flock "$cache/lock" rm -rf "$work"' EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
  # --pdeathsig and --kill-child: when this shell is killed, all that runs in the namespaces is.
  setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child \
    "$script" --in-namespaces --cache="$cache" "$@" &
  namespaces=$!
  wait "$namespaces"
  exit
fi

# --- Inside the namespaces ---

work=$cache/work
export TMPDIR="$work"
# shellcheck source=scripts/steps.sh
. scripts/steps.sh
machine=$work/machine

# sources_for SUITE: this machine's sources of Debian packages for that suite, in the form of sources.list. Only those of
# Debian's own archives, and of those the release itself, its updates and its security updates.
sources_for() {
  # shellcheck disable=SC2016 # apt-get's variables
  apt-get indextargets --format '$(CREATED_BY) $(ORIGIN) $(REPO_URI) $(RELEASE) $(COMPONENT) $(SIGNED_BY)' |
    while read -r kind origin uri release component key; do
      [ "$kind $origin" = 'Packages Debian' ] || continue
      pocket=
      case $release in
        *-updates) pocket=-updates ;;
        *-security) pocket=-security ;;
        *-*) continue ;;
      esac
      case $1$pocket in
        sid-* | unstable-*) continue ;;
      esac
      case $key in
        /*) option="[signed-by=$key] " ;;
        *) option= ;;
      esac
      printf 'deb %s%s %s%s %s\n' "$option" "$uri" "$1" "$pocket" "$component"
    done | sort -u
}

# bootstrap SUITE: makes the minimal installation that is kept.
bootstrap() {
  rm -rf "$work/new"
  extra=
  ! sources_for "$1" | grep -q ' https:' || extra=--include=ca-certificates
  # shellcheck disable=SC2086 # no option, or one
  if ! debootstrap --variant=minbase $extra "$1" "$work/new"; then
    tail -n 20 "$work/new/debootstrap/debootstrap.log" 2>/dev/null
    return 1
  fi
  mv "$work/new" "$cache/$1"
}

# bootstrap_step SUITE: the same as a step, where that has not been done yet.
bootstrap_step() {
  [ -d "$cache/$1" ] || step "$1: debootstrap" bootstrap "$1"
  [ -d "$cache/$1" ]
}

# fresh_machine SUITE: makes $machine a copy of the minimal installation.
fresh_machine() {
  rm -rf "$machine"
  cp -a "$cache/$1" "$machine" &&
    mkdir -p "$cache/packages-$1" &&
    configure_apt "$1" &&
    cp /etc/resolv.conf "$machine/etc/resolv.conf" &&
    printf '127.0.0.1 localhost %s\n' "$(hostname)" >"$machine/etc/hosts"
}

# configure_apt SUITE: gives $machine this one's way to Debian's packages. Where this is no Debian, it keeps the source
# that debootstrap wrote.
configure_apt() {
  list=$work/sources.list
  sources_for "$1" >"$list"
  if ! [ -s "$list" ]; then # it may never have read what its sources hold
    apt-get update
    sources_for "$1" >"$list"
  fi
  [ -s "$list" ] || return 0
  cp "$list" "$machine/etc/apt/sources.list" || return
  apt-config dump | sed -n '/^Acquire::https\{0,1\}::Proxy /p' >"$machine/etc/apt/apt.conf.d/90proxy"
  sed -n 's/.*\[signed-by=\([^]]*\)\].*/\1/p' "$list" | sort -u | while read -r key; do
    [ -e "$machine$key" ] || { mkdir -p "$machine${key%/*}" && cp "$key" "$machine$key"; } || return
  done
}

# on_machine SUITE COMMAND...: runs a command as root on the machine.
on_machine() {
  suite=$1
  shift
  scripts/enter-machine "$machine" "$cache/packages-$suite" "$@"
}

# copy_sources DIRECTORY: the sources as an archive holds them.
copy_sources() {
  mkdir -p "$1" &&
    tar --exclude=./.git --exclude=./build --exclude='./build-*' --exclude=__pycache__ -cf - . | tar -C "$1" -xof -
}
