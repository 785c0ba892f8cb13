# Shows the toolchain NDK_TOOLCHAIN and runs its compiler.
ifndef NDK_TOOLCHAIN
  $(error NDK_TOOLCHAIN is not set. The toolchains are: $(notdir $(wildcard toolchains/*)))
endif

include toolchains/$(NDK_TOOLCHAIN)/setup.mk

.PHONY: all
all:
	@printf '%s\n' '$(TOOLCHAIN_NAME) for $(TOOLCHAIN_ARCH)'
	@$(TARGET_CC) $(TARGET_CFLAGS) --version
