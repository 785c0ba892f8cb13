# A model of an NDK's build system: it finds toolchains, refuses and passes options as real releases
# do, and builds shared libraries of C and C++ files. The same file is in every sample NDK, which is
# whole without the others, as a real one is; they differ in release.mk.
.PHONY: all
all:
.DELETE_ON_ERROR:

include $(NDK_ROOT)/build/core/release.mk

complain = $(shell printf 'Android NDK: %s\n' '$(subst ','\'',$1)' >&2)
refuse = $(call complain,$1)$(error Android NDK: Aborting)
is_since = $(shell [ $(NDK_MAJOR) -ge $1 ] && echo yes)
hide := $(if $(filter 1,$(V)),,@)

# --- The project ---

NDK_PROJECT_PATH ?= $(if $(wildcard jni/Android.mk),$(CURDIR))
ifeq ($(NDK_PROJECT_PATH),)
  $(call refuse,NDK_PROJECT_PATH is not set and there is no jni/Android.mk in $(CURDIR))
endif
ifneq ($(words $(NDK_PROJECT_PATH)),1)
  $(call refuse,the project's directory holds a blank: $(NDK_PROJECT_PATH))
endif
APP_BUILD_SCRIPT ?= $(NDK_PROJECT_PATH)/jni/Android.mk
ifeq ($(wildcard $(APP_BUILD_SCRIPT)),)
  $(call refuse,there is no build script $(APP_BUILD_SCRIPT))
endif
APP_LEVEL := $(patsubst android-%,%,$(or $(APP_PLATFORM),android-21))

# --- The toolchains: each directory with a config.mk is one ---

NDK_TOOLCHAINS :=
define add_toolchain
  name := $(notdir $(patsubst %/,%,$(dir $1)))
  TOOLCHAIN_ARCH :=
  TOOLCHAIN_ABIS :=
  include $1
  $$(if $$(wildcard $(dir $1)setup.mk),,$$(call refuse,Toolchain $$(name) lacks a setup.mk in $(dir $1)))
  $$(if $$(TOOLCHAIN_ARCH),,$$(call refuse,Toolchain $$(name) sets no TOOLCHAIN_ARCH in $1))
  $$(if $$(TOOLCHAIN_ABIS),,$$(call refuse,Toolchain $$(name) sets no TOOLCHAIN_ABIS in $1))
  NDK_TOOLCHAINS += $$(name)
  setup_of.$$(name) := $(dir $1)setup.mk
  arch_of.$$(name) := $$(TOOLCHAIN_ARCH)
  abis_of.$$(name) := $$(TOOLCHAIN_ABIS)
endef
$(foreach config,$(wildcard $(NDK_ROOT)/$(NDK_TOOLCHAINS_DIR)/*/config.mk),$(eval $(call add_toolchain,$(config))))
NDK_TOOLCHAINS := $(sort $(NDK_TOOLCHAINS))
NDK_ABIS := $(sort $(foreach name,$(NDK_TOOLCHAINS),$(abis_of.$(name))))

ifdef NDK_TOOLCHAIN
  ifeq ($(filter $(NDK_TOOLCHAIN),$(NDK_TOOLCHAINS)),)
    $(call complain,NDK_TOOLCHAIN is defined to the unsupported value $(NDK_TOOLCHAIN))
    $(call refuse,Please use one of these values: $(NDK_TOOLCHAINS))
  endif
endif

# As with a real one, what the environment says of the ABIs does not count.
ifneq ($(origin APP_ABI),command line)
  APP_ABI := $(if $(NDK_TOOLCHAIN),$(abis_of.$(NDK_TOOLCHAIN)),$(NDK_ABIS))
endif
ifeq ($(APP_ABI),all)
  override APP_ABI := $(NDK_ABIS)
endif

# default_toolchain ABI: up to r12b the first name in sorted order, afterwards always the NDK's own.
able_to = $(foreach name,$(NDK_TOOLCHAINS),$(if $(filter $1,$(abis_of.$(name))),$(name)))
default_toolchain = $(firstword $(if $(call is_since,13),$(filter %-clang,$(able_to))) $(able_to))

# --- What an Android.mk uses ---

my-dir = $(patsubst %/,%,$(dir $(lastword $(MAKEFILE_LIST))))
CLEAR_VARS := $(NDK_ROOT)/build/core/clear-vars.mk
BUILD_SHARED_LIBRARY := $(NDK_ROOT)/build/core/build-shared-library.mk

# --- Every ABI, one after the other ---

$(foreach abi,$(APP_ABI),$(eval TARGET_ARCH_ABI := $(abi))$(eval include $(NDK_ROOT)/build/core/setup-abi.mk))
