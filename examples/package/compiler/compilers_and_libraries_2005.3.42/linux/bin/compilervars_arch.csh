# Sets up a shell for the nox compiler with an Android NDK. Source it: source compilervars_arch.csh
# The installer puts the NDK's directory in place of the placeholder. It is empty when the compiler
# was installed without an NDK; then ANDROID_NDK and PATH stay as they are.
set nox_ndk_dir = "<NDK_DIR>"
if ("$nox_ndk_dir" != "") then
  setenv ANDROID_NDK "$nox_ndk_dir"
  if ($?PATH) then
    setenv PATH "${ANDROID_NDK}:${PATH}"
  else
    setenv PATH "$ANDROID_NDK"
  endif
endif
unset nox_ndk_dir
