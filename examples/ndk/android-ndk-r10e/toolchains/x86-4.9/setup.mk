# The NDK's own compiler.
TOOLCHAIN_NAME := x86-4.9
TOOLCHAIN_PREFIX := $(NDK_ROOT)/toolchains/x86-4.9/prebuilt/linux-x86_64/bin/
TARGET_CC := $(TOOLCHAIN_PREFIX)i686-linux-android-gcc
TARGET_CXX := $(TOOLCHAIN_PREFIX)i686-linux-android-gcc
TARGET_STRIP := : strip
