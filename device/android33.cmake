# Toolchain of the device build: the NDK's clang, arm64, Android 13. ANDROID_NDK is where the NDK lies.
set(ANDROID_NDK "$ENV{ANDROID_NDK}" CACHE PATH "where the NDK lies")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ANDROID_NDK)
set(CMAKE_SYSTEM_NAME Linux)  # not Android: CMake would want to choose the NDK's parts itself
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ndk_llvm ${ANDROID_NDK}/toolchains/llvm/prebuilt/linux-x86_64)
set(CMAKE_CXX_COMPILER ${ndk_llvm}/bin/clang++)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-android33)
set(CMAKE_SYSROOT ${ndk_llvm}/sysroot)
set(CMAKE_CXX_FLAGS_INIT "-stdlib=libc++ -fPIE")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-pie -fuse-ld=lld")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
