# A library of one C and one C++ file. Build it from examples/app with an NDK's
#   ndk-build NDK_TOOLCHAIN=x86_64-nox5.0.3.42 APP_ABI=x86_64 APP_PLATFORM=android-21 APP_STL=none
LOCAL_PATH := $(call my-dir)

include $(CLEAR_VARS)
LOCAL_MODULE := hello
LOCAL_SRC_FILES := hello.c answer.cpp
include $(BUILD_SHARED_LIBRARY)
