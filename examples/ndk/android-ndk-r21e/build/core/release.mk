# What differs between the releases, as this one does it.
NDK_MAJOR := 21
NDK_TOOLCHAINS_DIR := build/core/toolchains
