#!/bin/sh
# shellcheck disable=SC1091,SC2154 # toolchain_definitions.sh is read from beside this script
#
# Installs this compiler's toolchain definitions into an Android NDK:
#   ndk_integration.sh NDK_DIR [--force]
# Each definition becomes the directory of its name where this NDK reads them: setup.mk first and
# config.mk last, because an NDK with a config.mk alone refuses every build. A file that is there
# already and differs is replaced only with --force. Exit status 1, with a message, when anything is
# wrong.
set -eu

# No command that prints the directory: it would lose line ends from the end of its name.
case $0 in
  -*/*) package=./${0%/*} ;;
  */*) package=${0%/*} ;;
  *) package=. ;;
esac
. "$package/toolchain_definitions.sh"

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
  die "'$ndk' is not an Android NDK: it has no ndk-build"
[ -f "$ndk/source.properties" ] || [ -f "$ndk/RELEASE.TXT" ] ||
  die "'$ndk' is not a complete Android NDK: it has neither source.properties nor RELEASE.TXT"
find_place ||
  die "'$ndk' is not a complete Android NDK: it has neither build/core/toolchains nor toolchains"

# architecture_of CONFIG_MK: prints the architecture that it sets.
architecture_of() {
  sed -n 's/^[[:blank:]]*TOOLCHAIN_ARCH[[:blank:]]*[:?]*=[[:blank:]]*\([^[:blank:]#]*\).*/\1/p' "$1"
}

# takes_first_name: whether this NDK may be one up to r12b, which takes the first name in the order
# of bytes as the default of an architecture.
takes_first_name() {
  [ -f "$ndk/source.properties" ] || return 0
  release=$(sed -n 's/^[[:blank:]]*Pkg\.Revision[[:blank:]]*=[[:blank:]]*\([0-9]*\).*/\1/p' \
    "$ndk/source.properties")
  [ "${release:-0}" -lt 13 ]
}

# refuse_default NAME: refuses a name that everybody's builds with this NDK would then use.
refuse_default() {
  mine=$1
  displaced=
  architecture=$(architecture_of "$package/$mine/config.mk")
  for config in "$place"/*/config.mk; do
    name_of "$config"
    if [ ! -f "$config" ] || is_ours "$name" ||
      [ "$(architecture_of "$config")" != "$architecture" ]; then
      continue
    fi
    [ "$(printf '%s\n%s\n' "$mine" "$name" | LC_ALL=C sort | head -n 1)" = "$mine" ] || return 0
    displaced=$name
  done
  [ -z "$displaced" ] ||
    die "'$mine' sorts before '$displaced', so this NDK would take it as everybody's default for $architecture"
}

# Everything is looked at before anything is changed.
for toolchain in $toolchains; do
  for file in setup.mk config.mk; do
    definition=$package/$toolchain/$file
    installed=$place/$toolchain/$file
    [ -r "$definition" ] || die "cannot read '$definition'; install the compiler package again"
    if grep -q '{INSTALL_NOX_' "$definition"; then
      die "'$definition' still holds placeholders; let the installer fill them in first"
    fi
    [ ! -d "$installed" ] || die "'$installed' is a directory; remove it first"
    if [ "$force" = no ] && [ -e "$installed" ] && ! cmp -s "$definition" "$installed"; then
      die "'$installed' is there already and differs; --force replaces it"
    fi
  done
  if takes_first_name; then
    refuse_default "$toolchain"
  fi
done

# Each file is written under another name first, so that an NDK in use never reads half of one.
copy=
trap '[ -z "$copy" ] || rm -f "$copy"' EXIT
trap 'exit 1' HUP INT TERM
for toolchain in $toolchains; do
  mkdir -p "$place/$toolchain" || die "cannot make '$place/$toolchain'"
  for file in setup.mk config.mk; do
    installed=$place/$toolchain/$file
    copy=$installed.new
    rm -f "$copy" # of a run that was killed
    cp "$package/$toolchain/$file" "$copy" || die "cannot write '$copy'"
    mv -f "$copy" "$installed" || die "cannot replace '$installed'"
    copy=
  done
  printf 'installed %s\n' "$place/$toolchain"
done
