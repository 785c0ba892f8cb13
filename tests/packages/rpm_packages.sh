#!/bin/sh
# The RPM packages with Debian's rpm, on a machine that is otherwise Debian's: what the packages hold and their scriptlets,
# not what they need of others. scripts/test-packages runs this in a chroot, which it changes.
#   rpm_packages.sh PACKAGES EXAMPLES
# PACKAGES holds the project's packages, and two versions of the sample compiler, 5.0.3.42-1 and 5.0.4.43-1.
set -eu
packages=$1
examples=$2
# shellcheck source=tests/packages/expectations.sh
. "$(dirname "$0")/expectations.sh"

# The libraries that the program needs, and rpm; the directories that the distributions of rpm have, and their loader reads.
apt-get -qq update
DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends install rpm "$packages"/lib*.deb "$packages"/ndk-integrate_*.deb
dpkg --purge ndk-integrate libndk-utils1n
mkdir -p /usr/lib64/cmake /usr/lib64/pkgconfig
echo /usr/lib64 >/etc/ld.so.conf.d/lib64.conf
ldconfig

# run_rpm OPTION...: fails where a scriptlet failed too, which rpm itself only tells.
run_rpm() {
  if ! rpm --nodeps "$@" >"$work/rpm" 2>&1 || grep -qE 'error|warning' "$work/rpm"; then
    fail "rpm $*: $(cat "$work/rpm")"
  fi
}

state() {
  rpm -q "$1" || true
}

expect_integrated() {
  expect 'state' "nox-ndk-compiler-$1-1.noarch" "$(state nox-ndk-compiler)"
  expect 'rpm -V' '' "$(rpm -V --nodeps nox-ndk-compiler)"
  expect_toolchains "$1"
}

old=$packages/nox-ndk-compiler-5.0.3.42-1.noarch.rpm
new=$packages/nox-ndk-compiler-5.0.4.43-1.noarch.rpm
new_ndk
tree >"$work/tree.before"

begin 'the project'"'"'s own'
run_rpm -i "$packages"/*.x86_64.rpm
expect 'rpm -V' '' "$(rpm -V --nodeps libndk-utils1n ndk-integrate ndk-utils-dev)"
ndk-integrate check-host >/dev/null || fail 'the host check'
tree >"$work/tree"

begin 'installed'
run_rpm -i "$old"
expect_integrated 5.0.3.42
begin 'installed again'
run_rpm -U --replacepkgs "$old"
expect_integrated 5.0.3.42
begin 'upgraded'
run_rpm -U "$new"
expect_integrated 5.0.4.43
begin 'downgraded'
run_rpm -U --oldpackage "$old"
expect_integrated 5.0.3.42
begin 'erased'
run_rpm -e nox-ndk-compiler
expect_gone
expect_nothing_left

begin 'no NDK on the machine'
mv "$ndk" "$ndk.away"
run_rpm -i "$old"
expect 'the environment' '' "$(named_ndk)"
run_rpm -e nox-ndk-compiler
mv "$ndk.away" "$ndk"
expect_nothing_left

begin 'the integration script fails'
mkdir -p "$toolchains/x86-nox5.0.3.42/config.mk" # which the script refuses to replace
rpm --nodeps -i "$old" 2>&1 | grep 'scriptlet failed' || fail 'rpm does not tell'
expect 'state' 'nox-ndk-compiler-5.0.3.42-1.noarch' "$(state nox-ndk-compiler)"
expect 'rpm -V' '' "$(rpm -V --nodeps nox-ndk-compiler)"
rm -r "$toolchains/x86-nox5.0.3.42"
run_rpm -U --replacepkgs "$old"
expect_integrated 5.0.3.42
run_rpm -e nox-ndk-compiler
expect_nothing_left

begin 'nothing of the project'"'"'s own is left'
run_rpm -e ndk-utils-dev ndk-integrate libndk-utils1n
mv "$work/tree.before" "$work/tree"
expect_nothing_left
end_cases
