# Cross-compiles for Debian on 64-bit ARM, with Debian's compiler and arm64 packages. The programs, including the
# tests, run under qemu's user emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(PKG_CONFIG_EXECUTABLE /usr/bin/aarch64-linux-gnu-pkg-config)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-aarch64)
