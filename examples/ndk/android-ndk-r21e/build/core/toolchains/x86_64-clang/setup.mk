# The NDK's own compiler.
TOOLCHAIN_NAME := x86_64-clang
TOOLCHAIN_PREFIX := $(NDK_ROOT)/toolchains/llvm/prebuilt/linux-x86_64/bin/
TARGET_CC := $(TOOLCHAIN_PREFIX)clang
TARGET_CXX := $(TOOLCHAIN_PREFIX)clang
TARGET_STRIP := : strip
LLVM_TRIPLE := x86_64-none-linux-android
