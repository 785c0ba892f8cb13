# Sets up a shell for the nox compiler with an Android NDK. Source it: . compilervars_arch.sh
# The installer puts the NDK's directory in place of the placeholder. It is empty when the compiler
# was installed without an NDK; then ANDROID_NDK and PATH stay as they are.
nox_ndk_dir="<NDK_DIR>"
if [ -n "$nox_ndk_dir" ]; then
  ANDROID_NDK=$nox_ndk_dir
  PATH=$ANDROID_NDK${PATH:+:$PATH}
  export ANDROID_NDK PATH
fi
unset nox_ndk_dir
