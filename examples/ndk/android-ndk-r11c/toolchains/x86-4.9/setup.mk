# The NDK's own compiler, which this sample leaves out.
TOOLCHAIN_NAME := x86-4.9
TOOLCHAIN_ARCH := x86
TARGET_CC := i686-linux-android-gcc
TARGET_CXX := i686-linux-android-g++
TARGET_CFLAGS :=
