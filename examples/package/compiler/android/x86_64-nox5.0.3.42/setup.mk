# Toolchain definition of the nox compiler {INSTALL_NOX_VERSION} in {INSTALL_NOX_INSTALLDIR}, for x86_64.
# An NDK reads x86_64-nox{INSTALL_NOX_VERSION} in build/core/toolchains, or in toolchains up to r10e.

# Between define and endef a text stands as it is, and $(value) takes it as it is: the directory may
# hold blanks, "#" and "$".
define NOX_INSTALLDIR_TEXT
{INSTALL_NOX_INSTALLDIR}
endef

NOX_INSTALLDIR := $(value NOX_INSTALLDIR_TEXT)
NOX_VERSION := {INSTALL_NOX_VERSION}

# One word for the shell that runs a recipe, whatever the directory holds.
NOX_BIN_QUOTED := '$(subst ','\'',$(NOX_INSTALLDIR)/bin)'

TOOLCHAIN_NAME := x86_64-nox{INSTALL_NOX_VERSION}
TOOLCHAIN_PREFIX := $(NOX_BIN_QUOTED)/nox
TARGET_CC := $(NOX_BIN_QUOTED)/noxcc
TARGET_CXX := $(NOX_BIN_QUOTED)/noxc++
TARGET_CFLAGS := -m64 -fPIC
TARGET_CXXFLAGS := $(TARGET_CFLAGS) -fno-exceptions -fno-rtti
TARGET_LDFLAGS := -m64

# This package brings no tools for finished objects: the machine's own do.
TARGET_LD := ld
TARGET_AR := ar
TARGET_STRIP := strip
TARGET_OBJCOPY := objcopy

# From r18 on the compile command begins with -target and this, followed by the API level.
LLVM_TRIPLE := x86_64-none-linux-android
