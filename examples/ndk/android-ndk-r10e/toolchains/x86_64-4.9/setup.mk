# The NDK's own compiler, which this sample leaves out.
TOOLCHAIN_NAME := x86_64-4.9
TOOLCHAIN_ARCH := x86_64
TARGET_CC := x86_64-linux-android-gcc
TARGET_CXX := x86_64-linux-android-g++
TARGET_CFLAGS :=
