# What this toolchain builds. An NDK reads this file while it lists its toolchains, before setup.mk,
# which has to be beside it.
TOOLCHAIN_ARCH := x86
TOOLCHAIN_ABIS := x86
