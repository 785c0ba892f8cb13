#!/bin/sh
# shellcheck disable=SC1091,SC2154 # toolchain_definitions.sh is read from beside this script
#
# Takes this compiler's toolchain definitions out of an Android NDK:
#   ndk_removal.sh NDK_DIR
# It removes what ndk_integration.sh put there and nobody has changed since, config.mk first, because
# an NDK with a config.mk alone refuses every build, and then the directories that this leaves empty.
# What was changed stays and is named. Exit status 1, with a message, when anything is wrong.
set -eu

case $0 in
  -*/*) package=./${0%/*} ;;
  */*) package=${0%/*} ;;
  *) package=. ;;
esac
. "$package/toolchain_definitions.sh"

usage='usage: ndk_removal.sh NDK_DIR'
[ $# -eq 1 ] || die "$usage"
ndk=$1
case $ndk in
  '') die "the NDK directory is empty; $usage" ;;
  -*) die "unknown option '$ndk' ('./$ndk' names a directory); $usage" ;;
esac
[ -d "$ndk" ] || die "'$ndk' is not a directory; give the top directory of an Android NDK"

if ! find_place; then
  printf "nothing to remove: '%s' has neither build/core/toolchains nor toolchains\n" "$ndk"
  exit 0
fi

# is_unchanged FILE: whether the NDK's FILE of $toolchain is as this package has it.
is_unchanged() {
  cmp -s "$package/$toolchain/$1" "$place/$toolchain/$1" && return 0
  [ $? -eq 1 ] || die "cannot compare '$place/$toolchain/$1' with '$package/$toolchain/$1'"
  return 1
}

# Everything is looked at before anything is removed.
for toolchain in $toolchains; do
  installed=$place/$toolchain
  if [ ! -d "$installed" ] || [ -L "$installed" ]; then
    continue
  fi
  for file in config.mk setup.mk; do
    if [ ! -e "$installed/$file" ] && [ ! -L "$installed/$file" ]; then
      continue
    fi
    if ! is_unchanged "$file" && grep -q '{INSTALL_NOX_' "$package/$toolchain/$file"; then
      die "'$package/$toolchain/$file' holds placeholders, so what was put into '$installed' cannot be told; look at it and remove it by hand"
    fi
  done
done

for toolchain in $toolchains; do
  installed=$place/$toolchain
  if [ ! -d "$installed" ] || [ -L "$installed" ]; then
    continue
  fi
  rm -f "$installed/setup.mk.new" "$installed/config.mk.new" # of a run that was killed
  for file in config.mk setup.mk; do
    if [ ! -e "$installed/$file" ] && [ ! -L "$installed/$file" ]; then
      continue
    fi
    if ! is_unchanged "$file"; then
      printf 'left %s: it was changed after it was installed\n' "$installed/$file"
      # Where config.mk stays, so must setup.mk.
      [ "$file" != config.mk ] || break
      continue
    fi
    rm "$installed/$file" || die "cannot remove '$installed/$file'"
    printf 'removed %s\n' "$installed/$file"
  done
  if [ -z "$(ls -A "$installed")" ]; then
    rmdir "$installed" || die "cannot remove '$installed'"
  fi
done
