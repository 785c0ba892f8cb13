#!/bin/sh
# Installs this compiler's toolchain definitions into an Android NDK:
#   ndk_integration.sh NDK_DIR [--force]
# Each definition becomes NDK_DIR/toolchains/NAME/setup.mk. One that is there already and differs is
# replaced only with --force. Exit status 1, with a message, when anything is wrong.
set -eu

toolchains='x86_64-nox5.0.3.42 x86-nox5.0.3.42'

die() {
  printf 'ndk_integration.sh: %s\n' "$1" >&2
  exit 1
}

# No command that prints the directory: it would lose line ends from the end of its name.
case $0 in
  -*/*) package=./${0%/*} ;;
  */*) package=${0%/*} ;;
  *) package=. ;;
esac

usage='usage: ndk_integration.sh NDK_DIR [--force]'
force=no
case $# in
  1) ;;
  2)
    [ "$2" = --force ] || die "unknown argument '$2'; $usage"
    force=yes
    ;;
  *) die "$usage" ;;
esac
ndk=$1
case $ndk in
  '') die "the NDK directory is empty; $usage" ;;
  -*) die "unknown option '$ndk' ('./$ndk' names a directory); $usage" ;;
esac

[ -d "$ndk" ] || die "'$ndk' is not a directory; give the top directory of an Android NDK"
[ -f "$ndk/ndk-build" ] || [ -f "$ndk/ndk-build.cmd" ] ||
  die "'$ndk' is no Android NDK: it holds no ndk-build"
[ -f "$ndk/source.properties" ] || [ -f "$ndk/RELEASE.TXT" ] ||
  die "'$ndk' is no complete Android NDK: it holds neither source.properties nor RELEASE.TXT"
[ -d "$ndk/toolchains" ] ||
  die "'$ndk' is no complete Android NDK: it holds no directory toolchains"

# Everything is looked at before anything is changed.
for name in $toolchains; do
  definition=$package/$name/setup.mk
  installed=$ndk/toolchains/$name/setup.mk
  [ -r "$definition" ] || die "cannot read '$definition'; install the compiler package again"
  if grep -q '{INSTALL_NOX_' "$definition"; then
    die "'$definition' still holds placeholders; let the installer fill them in first"
  fi
  [ ! -d "$installed" ] || die "'$installed' is a directory; remove it first"
  if [ "$force" = no ] && [ -e "$installed" ] && ! cmp -s "$definition" "$installed"; then
    die "'$installed' is there already and differs; --force replaces it"
  fi
done

# A definition is written under another name first, so that an NDK in use never reads half of one.
copy=
trap '[ -z "$copy" ] || rm -f "$copy"' EXIT
trap 'exit 1' HUP INT TERM
for name in $toolchains; do
  installed=$ndk/toolchains/$name/setup.mk
  mkdir -p "$ndk/toolchains/$name" || die "cannot make '$ndk/toolchains/$name'"
  copy=$installed.tmp.$$
  cp "$package/$name/setup.mk" "$copy" || die "cannot write '$copy'"
  mv -f "$copy" "$installed" || die "cannot replace '$installed'"
  copy=
  printf 'installed %s\n' "$installed"
done
