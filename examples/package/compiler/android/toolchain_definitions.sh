# shellcheck shell=sh
# shellcheck disable=SC2154 # $ndk is set by the scripts that read this
#
# What ndk_integration.sh and ndk_removal.sh have in common. Each reads it with "." when it has set
# $package to its own directory.

toolchains='x86_64-nox5.0.3.42 x86-nox5.0.3.42'

die() {
  printf '%s: %s\n' "${0##*/}" "$1" >&2
  exit 1
}

# is_ours NAME: whether NAME is one of this package's toolchains.
is_ours() {
  case " $toolchains " in
    *" $1 "*) return 0 ;;
  esac
  return 1
}

# name_of FILE: sets $name to the toolchain in whose directory FILE is.
name_of() {
  name=${1%/*}
  name=${name##*/}
}

# has_others FILE...: whether one of these files of toolchains is there and not this package's.
has_others() {
  for file; do
    name_of "$file"
    if [ -e "$file" ] && ! is_ours "$name"; then
      return 0
    fi
  done
  return 1
}

# find_place: sets $place to the directory in which the NDK $ndk reads toolchain definitions, told by
# which one it has. From r11 on that is build/core/toolchains; toolchains is there as well, but holds
# the NDK's own binaries. What was once put there by mistake does not make an older NDK a new one.
find_place() {
  place=$ndk/build/core/toolchains
  if [ ! -d "$place" ] || { [ -n "$(ls -A "$place")" ] && ! has_others "$place"/*/. &&
    has_others "$ndk/toolchains"/*/config.mk; }; then
    place=$ndk/toolchains
  fi
  [ -d "$place" ]
}
