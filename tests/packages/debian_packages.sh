#!/bin/sh
# The Debian packages on a fresh machine, with its own dpkg and apt: every transition of the project's packages and of
# the sample compiler's. scripts/test-packages runs this in a chroot, which it changes.
#   debian_packages.sh PACKAGES EXAMPLES GUIDE
# PACKAGES holds the project's packages, an older version of them in older/, and two versions of the sample compiler,
# 5.0.3.42-1 and 5.0.4.43-1; GUIDE is docs/packaging-a-compiler.md.
set -eu
packages=$1
examples=$2
guide=$3
# shellcheck source=tests/packages/expectations.sh
. "$(dirname "$0")/expectations.sh"
export DEBIAN_FRONTEND=noninteractive


echo force-unsafe-io >/etc/dpkg/dpkg.cfg.d/no-flushes # this machine does not outlive the test

# --- What is expected ---

# state PACKAGE: how dpkg sees it, as "ii 1.0.0"; nothing if it does not know it.
state() {
  # shellcheck disable=SC2016 # dpkg's variables
  dpkg-query -W -f '${db:Status-Abbrev}${Version}' "$1" 2>/dev/null || true
}

# expect_whole: what dpkg installed is as it was shipped, and nothing half-made lies about.
expect_whole() {
  expect 'dpkg -V' '' "$(dpkg -V nox-ndk-compiler)"
  expect 'half-made files' '' "$(find "$compiler" "$ndk" -name '*.new' 2>/dev/null)"
}

# expect_integrated VERSION: the package is installed, the NDK has its toolchains and those only, and they work.
expect_integrated() {
  expect 'state' "ii $1-1" "$(state nox-ndk-compiler)"
  expect_whole
  expect_toolchains "$1"
}

# expect_without_ndk VERSION: the package is installed, and its environment scripts name no NDK.
expect_without_ndk() {
  expect 'state' "ii $1-1" "$(state nox-ndk-compiler)"
  expect_whole
  expect 'the environment' '' "$(named_ndk)"
}

# --- Acts ---

apt() {
  apt-get -qq -o Dpkg::Use-Pty=0 --no-install-recommends --allow-downgrades -y "$@" </dev/null
}

old=$packages/nox-ndk-compiler_5.0.3.42-1_all.deb
new=$packages/nox-ndk-compiler_5.0.4.43-1_all.deb

# install_program OPTION...: what the compiler's package needs.
install_program() {
  apt install "$@" "$packages"/libndk-utils1n_*.deb "$packages"/ndk-integrate_*.deb
}

purge_compiler() {
  dpkg --purge nox-ndk-compiler >/dev/null
  expect_gone
  expect 'state' '' "$(state nox-ndk-compiler)"
}

# --- The project's own packages ---

own_packages() {
  # The libraries that they need stay; what is looked for is what is left of ours.
  apt update
  apt install "$packages"/older/*.deb
  apt purge libndk-utils1n ndk-integrate ndk-utils-dev
  tree >"$work/tree"

  begin 'an older version is installed, and upgraded'
  apt install "$packages"/older/*.deb
  expect 'state' 'ii 0.9.0' "$(state ndk-integrate)"
  apt install "$packages"/libndk-utils1n_*.deb "$packages"/ndk-integrate_*.deb "$packages"/ndk-utils-dev_*.deb
  for package in libndk-utils1n ndk-integrate ndk-utils-dev; do
    expect "state of $package" 'ii 1.0.0' "$(state "$package")"
    expect 'dpkg -V' '' "$(dpkg -V "$package")"
  done

  begin 'what else finds the program'
  for file in man/man1/ndk-integrate.1.gz ndk-integrate/ndk-integrate.schema.json \
    bash-completion/completions/ndk-integrate fish/vendor_completions.d/ndk-integrate.fish \
    zsh/vendor-completions/_ndk-integrate; do
    expect "the owner of $file" 'ndk-integrate' "$(dpkg -S "/usr/share/$file" | cut -d : -f 1)"
  done

  begin 'the loader finds the plug-in by its bare name'
  ldconfig -p | grep -q '^	libndk_utils.so.1n .*=> /usr/lib/\|^	libndk_utils.so.1n .*=> /lib/' || fail 'not in the cache'
  LD_DEBUG=libs ndk-integrate find --search / 2>&1 | grep 'find library=libndk_utils.so.1n ' || fail 'not by its bare name'
  ndk-integrate check-host >/dev/null || fail 'the host check'

  begin 'the example is installed and undone'
  cp -R "$examples" "$work/examples"
  ndk-integrate install -q "$work/examples/installation.toml"
  ndk-integrate verify -q --no-build "$work/examples/installation.toml"
  ndk-integrate undo -q "$work/examples/installation.toml"
  diff -r "$examples" "$work/examples" || fail 'not as it was'

  begin 'removed and purged'
  apt remove libndk-utils1n ndk-integrate ndk-utils-dev
  expect_nothing_left
  dpkg --purge libndk-utils1n # the others are gone already
  for package in libndk-utils1n ndk-integrate ndk-utils-dev; do
    expect "state of $package" '' "$(state "$package")"
  done
  expect_nothing_left
}

# --- The sample compiler: what its package goes through ---

life_of_a_package() {
  begin 'installed'
  apt install "$old"
  expect_integrated 5.0.3.42
  begin 'installed again'
  apt install --reinstall "$old"
  expect_integrated 5.0.3.42
  begin 'configured again'
  dpkg-reconfigure nox-ndk-compiler
  expect_integrated 5.0.3.42
  begin 'upgraded'
  apt install "$new"
  expect_integrated 5.0.4.43
  begin 'downgraded'
  apt install "$old"
  expect_integrated 5.0.3.42
  begin 'removed, and purged'
  apt remove nox-ndk-compiler
  expect_gone
  expect 'state' 'rc 5.0.3.42-1' "$(state nox-ndk-compiler)"
  apt purge nox-ndk-compiler
  expect 'state' '' "$(state nox-ndk-compiler)"
  expect_nothing_left
  begin 'what it needs is installed again'
  apt install "$old"
  install_program --reinstall
  expect_integrated 5.0.3.42
  begin 'what it needs is removed, and it with that'
  apt remove libndk-utils1n
  expect_gone
  install_program
  apt purge nox-ndk-compiler
  expect_nothing_left
  begin 'purged at once'
  apt install "$old"
  purge_compiler
  expect_nothing_left
}

no_ndk() {
  begin 'no NDK on the machine'
  mv "$ndk" "$ndk.away"
  apt install "$old"
  expect_without_ndk 5.0.3.42
  apt install "$new"
  expect_without_ndk 5.0.4.43
  begin 'an NDK comes, and goes'
  mv "$ndk.away" "$ndk"
  dpkg-reconfigure nox-ndk-compiler
  expect_integrated 5.0.4.43
  mv "$ndk" "$ndk.away"
  dpkg-reconfigure nox-ndk-compiler
  expect_without_ndk 5.0.4.43
  dpkg --purge nox-ndk-compiler
  new_ndk
  rm -rf "$ndk.away"
  expect_gone
  expect_nothing_left

  begin 'an NDK where the administrator says'
  mv "$ndk" /srv/ndk
  apt install "$old"
  expect_without_ndk 5.0.3.42
  echo 'NDK_SEARCH_PATH="/nowhere;/srv/ndk"' >>/etc/default/nox-ndk-compiler
  dpkg-reconfigure nox-ndk-compiler
  [ -d /srv/ndk/build/core/toolchains/x86-nox5.0.3.42 ] || fail 'not integrated'
  dpkg --force-confold -i "$new"
  [ -d /srv/ndk/build/core/toolchains/x86-nox5.0.4.43 ] || fail 'not integrated after an upgrade'
  dpkg --purge nox-ndk-compiler
  mv /srv/ndk "$ndk"
  expect_gone
  expect_nothing_left
}

failing_scripts() {
  begin 'the integration script fails'
  mkdir -p "$toolchains/x86-nox5.0.3.42/config.mk" # which the script refuses to replace
  expect_failure apt install "$old"
  expect 'state' 'iF 5.0.3.42-1' "$(state nox-ndk-compiler)"
  expect_whole
  expect_failure dpkg --configure -a
  rm -r "$toolchains/x86-nox5.0.3.42"
  dpkg --configure -a
  expect_integrated 5.0.3.42

  begin 'the integration script fails in an upgrade'
  mkdir -p "$toolchains/x86-nox5.0.4.43/config.mk"
  expect_failure apt install "$new"
  expect 'state' 'iF 5.0.4.43-1' "$(state nox-ndk-compiler)"
  expect_whole
  begin 'back to the version before'
  apt install "$old"
  rm -r "$toolchains/x86-nox5.0.4.43"
  expect_integrated 5.0.3.42

  begin 'removed after the integration script failed'
  purge_compiler
  mkdir -p "$toolchains/x86-nox5.0.3.42/config.mk"
  expect_failure apt install "$old"
  apt remove nox-ndk-compiler
  rm -r "$toolchains/x86-nox5.0.3.42"
  purge_compiler

  begin 'the removal script fails'
  apt install "$old"
  printf '#!/bin/sh\nexit 1\n' >"$compiler/android/ndk_removal.sh"
  apt remove nox-ndk-compiler
  expect 'state' 'rc 5.0.3.42-1' "$(state nox-ndk-compiler)"
  expect 'files of the compiler' '' "$(ls -d "$compiler" 2>/dev/null)"
  [ -d "$toolchains/x86-nox5.0.3.42" ] || fail 'the NDK was to be left as it is'
  new_ndk
  purge_compiler

  begin 'a file that was filled in is edited'
  apt install "$old"
  vars=$(echo "$compiler"/compilers_*/linux/bin/compilervars_arch.sh)
  echo '# mine' >>"$vars"
  expect_failure apt remove nox-ndk-compiler
  expect 'state' 'ii 5.0.3.42-1' "$(state nox-ndk-compiler)"
  expect 'the edit' '# mine' "$(tail -n 1 "$vars")"
  expect_failure apt install "$new"
  expect 'state' 'ii 5.0.3.42-1' "$(state nox-ndk-compiler)"
  ndk-integrate undo -q /usr/share/nox-ndk-compiler/installation.toml --force "$vars"
  rm "$vars.edited"
  apt install "$new"
  expect_integrated 5.0.4.43
  purge_compiler
  expect_nothing_left
}

# The RUN line of the guide, in an image that has the NDK.
container_image() {
  begin 'the line of a container image'
  apt purge libndk-utils1n ndk-integrate
  mkdir /tmp/packages
  cp "$packages"/libndk-utils1n_*.deb "$packages"/ndk-integrate_*.deb "$old" /tmp/packages/
  sh -c "$(sed -n 's/^    RUN //p' "$guide")" || fail 'the line fails'
  expect_integrated 5.0.3.42
  expect 'lists of packages' '' "$(ls -A /var/lib/apt/lists)"
  purge_compiler
}

# --- A kill in the middle ---

# In place of some commands that the scripts use: each counts itself, and the one whose turn it is kills dpkg and all that
# it started, before it does its work.
counted_commands='cp mv rm mkdir find ndk-integrate'

make_counted_commands() {
  mkdir -p "$work/bin"
  for command in $counted_commands; do
    cat >"$work/bin/$command" <<EOF
#!/bin/sh
echo $command >>$work/count
[ "\$(wc -l <$work/count)" != "\$KILL_AT" ] || kill -KILL -"\$(cat $work/group)"
exec $(command -v "$command") "\$@"
EOF
    chmod +x "$work/bin/$command"
  done
}

# killed_at N COMMAND...: runs the command in a process group of its own, in which everything is killed at the Nth counted
# command. Fails if that was never reached.
killed_at() {
  at=$1
  shift
  : >"$work/count"
  # shellcheck disable=SC2016 # expanded by that shell
  KILL_AT=$at PATH="$work/bin:$PATH" setsid --wait sh -c 'echo $$ >"$0"; exec "$@"' "$work/group" "$@" \
    >"$work/log" 2>&1 || true
  [ "$(wc -l <"$work/count")" -ge "$at" ]
}

# recover COMMAND...: what an administrator does. Where dpkg was killed in its own work, it asks for the package to be
# installed again.
recover() {
  dpkg --configure -a || echo 'dpkg asks for more'
  "$@" || { dpkg -i "$old" && "$@"; }
}

# sweep PREPARE CHECK COMMAND...: kills the command at every counted command in it, and recovers.
sweep() {
  prepare=$1
  check=$2
  shift 2
  kills=0
  while $prepare && killed_at $((kills + 1)) "$@"; do
    kills=$((kills + 1))
    recover "$@" >"$work/log" 2>&1 || { cat "$work/log" && fail "kill $kills, at $(tail -n 1 "$work/count")"; }
    $check
    purge_compiler
  done
  [ "$kills" -gt 5 ] || fail "only $kills kills"
  printf 'told: %s kills\n' "$kills"
  $check
  purge_compiler
  expect_nothing_left
}

prepare_nothing() {
  :
}

prepare_old() {
  dpkg -i "$old" >"$work/log" 2>&1
}

check_old() {
  expect_integrated 5.0.3.42
}

check_new() {
  expect_integrated 5.0.4.43
}

check_removed() {
  expect 'state' 'rc 5.0.3.42-1' "$(state nox-ndk-compiler)"
  expect_gone
}

kills() {
  make_counted_commands
  begin 'killed while it is installed'
  sweep prepare_nothing check_old dpkg -i "$old"
  begin 'killed while it is upgraded'
  sweep prepare_old check_new dpkg -i "$new"
  begin 'killed while it is removed'
  sweep prepare_old check_removed dpkg -r nox-ndk-compiler
}

own_packages
new_ndk
install_program
tree >"$work/tree"
life_of_a_package
no_ndk
failing_scripts
kills
container_image
end_cases
