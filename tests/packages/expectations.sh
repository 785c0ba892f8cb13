# shellcheck shell=sh
# What the tests of packages expect of a machine, for those of each package manager. Read by a script that has set $examples.
export LC_ALL=C

compiler=/usr/lib/nox-ndk-compiler
ndk=/opt/android-ndk-r11c
toolchains=$ndk/build/core/toolchains
work=$(mktemp -d)

cases=0
case_name=

# begin NAME: a case; everything until the next one belongs to it.
begin() {
  case_name=$1
  cases=$((cases + 1))
  printf -- '--- %s\n' "$1"
}

fail() {
  printf 'FAILED: %s: %s\n' "$case_name" "$1"
  exit 1
}

# expect WHAT EXPECTED FOUND
expect() {
  [ "$2" = "$3" ] || fail "$1: expected '$2', found '$3'"
}

# expect_failure COMMAND...
expect_failure() {
  if "$@"; then
    fail "did not fail: $*"
  fi
}

# tree: every file of the machine but those that dpkg and apt keep for themselves.
tree() {
  find / -xdev \( -path /tmp -o -path /root -o -path /var/lib/dpkg -o -path /var/lib/rpm -o -path /var/lib/apt -o -path /var/cache -o \
    -path /var/log -o -path /etc/ld.so.cache -o -path /run \) -prune -o \( -type f -exec md5sum {} + \) -o -print | sort
}

# expect_nothing_left: the machine is as it was when $work/tree was written.
expect_nothing_left() {
  tree >"$work/tree.now"
  diff "$work/tree" "$work/tree.now" || fail 'something is left behind'
}

new_ndk() {
  rm -rf "$ndk"
  cp -a "${examples:?}/ndk/android-ndk-r11c" "$ndk"
}

expect_untouched_ndk() {
  diff -r "${examples:?}/ndk/android-ndk-r11c" "$ndk" || fail 'the NDK is not as it was'
}

# named_ndk: the NDK that a shell has after reading the environment script; nothing if that names none.
named_ndk() {
  # shellcheck disable=SC2016 # expanded by that shell
  env -u ANDROID_NDK sh -c '. "$1"; echo "${ANDROID_NDK-}"' sh "$compiler"/compilers_*/linux/bin/compilervars_arch.sh
}

# expect_toolchains VERSION: the NDK has the compiler's toolchains of that version and those only, and the compiler the NDK.
expect_toolchains() {
  expect 'toolchains' "x86-4.9 x86-nox$1 x86_64-4.9 x86_64-nox$1" "$(cd "$toolchains" && echo *)"
  expect 'the environment' "$ndk" "$(named_ndk)"
  ndk-integrate verify -q --no-build /usr/share/nox-ndk-compiler/installation.toml >"$work/verify" ||
    fail "verify: $(cat "$work/verify")"
}

expect_gone() {
  expect 'files of the compiler' '' "$(ls -d "$compiler" /usr/share/nox-ndk-compiler 2>/dev/null || true)"
  expect_untouched_ndk
}

end_cases() {
  rm -rf "$work"
  printf 'told: %s cases\n' "$cases"
}
