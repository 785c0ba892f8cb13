# The NDK's own compiler.
TOOLCHAIN_NAME := x86-clang
TOOLCHAIN_PREFIX := $(NDK_ROOT)/toolchains/llvm/prebuilt/linux-x86_64/bin/
TARGET_CC := $(TOOLCHAIN_PREFIX)clang
TARGET_CXX := $(TOOLCHAIN_PREFIX)clang
TARGET_STRIP := : strip
LLVM_TRIPLE := i686-none-linux-android
