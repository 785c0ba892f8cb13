# Sets up the toolchain for TARGET_ARCH_ABI and reads the modules.
TARGET_TOOLCHAIN := $(or $(NDK_TOOLCHAIN),$(call default_toolchain,$(TARGET_ARCH_ABI)))
ifeq ($(TARGET_TOOLCHAIN),)
  $(call refuse,no toolchain builds for the $(TARGET_ARCH_ABI) ABI; these ABIs are known: $(NDK_ABIS))
endif
ifeq ($(filter $(TARGET_ARCH_ABI),$(abis_of.$(TARGET_TOOLCHAIN))),)
  $(call refuse,The selected toolchain ($(TARGET_TOOLCHAIN)) does not support the $(TARGET_ARCH_ABI) ABI)
endif
TARGET_ARCH := $(arch_of.$(TARGET_TOOLCHAIN))
TARGET_OUT := $(NDK_PROJECT_PATH)/obj/local/$(TARGET_ARCH_ABI)

# What a setup.mk need not set.
TARGET_CC = $(TOOLCHAIN_PREFIX)gcc
TARGET_CXX = $(TOOLCHAIN_PREFIX)g++
TARGET_AR = $(TOOLCHAIN_PREFIX)ar
TARGET_STRIP = $(TOOLCHAIN_PREFIX)strip
TARGET_CFLAGS :=
TARGET_CXXFLAGS = $(TARGET_CFLAGS)
TARGET_LDFLAGS :=
LLVM_TRIPLE :=
include $(setup_of.$(TARGET_TOOLCHAIN))

# What the releases pass, as far as it matters to a compiler.
SYSROOT := $(NDK_ROOT)/platforms/android-$(APP_LEVEL)/arch-$(TARGET_ARCH)
ifeq ($(call is_since,18),yes)
  ifeq ($(LLVM_TRIPLE),)
    $(call refuse,Toolchain $(TARGET_TOOLCHAIN) does not set LLVM_TRIPLE)
  endif
  TARGET_FLAGS := -target $(LLVM_TRIPLE)$(APP_LEVEL)
  COMPILE_FLAGS := $(TARGET_FLAGS) -fdata-sections -ffunction-sections -fstack-protector-strong -funwind-tables -fno-addrsig
  LINK_FLAGS := $(TARGET_FLAGS) -gcc-toolchain $(NDK_ROOT)/toolchains/llvm -nostdlib++ -latomic
else
  COMPILE_FLAGS :=
  LINK_FLAGS :=
endif
COMPILE_FLAGS += -DANDROID -Wa,--noexecstack -Wformat -Werror=format-security --sysroot=$(SYSROOT)
LINK_FLAGS += --sysroot=$(SYSROOT) -lgcc -Wl,--no-undefined -Wl,-z,noexecstack -Wl,-z,relro -Wl,-z,now -lc -lm

include $(APP_BUILD_SCRIPT)
