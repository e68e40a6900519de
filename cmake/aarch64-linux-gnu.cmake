# Debian on 64-bit ARM, cross-built with Debian's compiler against Debian's arm64 packages. What is built runs under
# qemu's user emulation, tests included.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(PKG_CONFIG_EXECUTABLE /usr/bin/aarch64-linux-gnu-pkg-config)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-aarch64)
