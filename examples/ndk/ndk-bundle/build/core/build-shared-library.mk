# The rules of one shared library: objects, the library with its symbols, and the stripped one. A
# recipe runs when everything is read, so what it needs of this ABI is kept with its target.
built := $(TARGET_OUT)/lib$(LOCAL_MODULE).so
installed := $(NDK_PROJECT_PATH)/libs/$(TARGET_ARCH_ABI)/lib$(LOCAL_MODULE).so
c_objects := $(patsubst %,$(TARGET_OUT)/objs/$(LOCAL_MODULE)/%.o,$(filter %.c,$(LOCAL_SRC_FILES)))
cxx_objects := $(patsubst %,$(TARGET_OUT)/objs/$(LOCAL_MODULE)/%.o,$(filter %.cpp %.cc %.cxx,$(LOCAL_SRC_FILES)))

all: $(installed)

$(c_objects) $(cxx_objects) $(built) $(installed): PRIVATE_ABI := $(TARGET_ARCH_ABI)
$(c_objects): PRIVATE_COMPILER := $(TARGET_CC)
$(c_objects): PRIVATE_FLAGS := $(COMPILE_FLAGS) $(TARGET_CFLAGS) $(LOCAL_CFLAGS)
$(cxx_objects): PRIVATE_COMPILER := $(TARGET_CXX)
$(cxx_objects): PRIVATE_FLAGS := $(COMPILE_FLAGS) $(TARGET_CXXFLAGS) $(LOCAL_CFLAGS) $(LOCAL_CPPFLAGS)

$(c_objects) $(cxx_objects): $(TARGET_OUT)/objs/$(LOCAL_MODULE)/%.o: $(LOCAL_PATH)/%
	@echo "[$(PRIVATE_ABI)] Compile        : $(notdir $<)"
	@mkdir -p $(dir $@)
	$(hide)$(PRIVATE_COMPILER) -MMD -MP -MF $@.d $(PRIVATE_FLAGS) -c $< -o $@

$(built): PRIVATE_COMPILER := $(TARGET_CXX)
$(built): PRIVATE_FLAGS := $(TARGET_LDFLAGS) $(LINK_FLAGS) $(LOCAL_LDFLAGS) $(LOCAL_LDLIBS)
$(built): $(c_objects) $(cxx_objects)
	@echo "[$(PRIVATE_ABI)] SharedLibrary  : $(notdir $@)"
	$(hide)$(PRIVATE_COMPILER) -Wl,-soname,$(notdir $@) -shared $^ $(PRIVATE_FLAGS) -o $@

$(installed): PRIVATE_STRIP := $(TARGET_STRIP)
$(installed): $(built)
	@echo "[$(PRIVATE_ABI)] Install        : $(notdir $@)"
	@mkdir -p $(dir $@)
	$(hide)cp $< $@
	$(hide)$(PRIVATE_STRIP) --strip-unneeded $@
