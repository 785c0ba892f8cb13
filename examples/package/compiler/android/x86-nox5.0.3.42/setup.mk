# Toolchain definition of the nox compiler {INSTALL_NOX_VERSION} in {INSTALL_NOX_INSTALLDIR}, for x86.
# An NDK reads this file from toolchains/x86-nox{INSTALL_NOX_VERSION}/setup.mk.

# Between define and endef a text stands as it is, and $(value) takes it as it is: the directory may
# hold blanks, "#" and "$".
define NOX_INSTALLDIR_TEXT
{INSTALL_NOX_INSTALLDIR}
endef

NOX_INSTALLDIR := $(value NOX_INSTALLDIR_TEXT)
NOX_VERSION := {INSTALL_NOX_VERSION}

TOOLCHAIN_NAME := x86-nox{INSTALL_NOX_VERSION}
TOOLCHAIN_ARCH := x86

# One word for the shell that runs a recipe, whatever the directory holds.
NOX_BIN_QUOTED := '$(subst ','\'',$(NOX_INSTALLDIR)/bin)'
TARGET_CC := $(NOX_BIN_QUOTED)/noxcc
TARGET_CXX := $(NOX_BIN_QUOTED)/noxc++
TARGET_CFLAGS := -m32
TARGET_LDFLAGS := -m32
