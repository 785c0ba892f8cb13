# What differs between the releases, as this one does it.
NDK_MAJOR := 10
NDK_TOOLCHAINS_DIR := toolchains
