# Cross build for 64-bit ARM Linux with Debian's cross compiler
# (crossbuild-essential-arm64).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Programs run under qemu-user against Debian's arm64 run-time libraries
# (libc6:arm64 and libstdc++6:arm64, which bring the character set
# converters iconv loads) where they are installed, else against the cross
# compiler's. The two must not mix: the host's library cache lists the
# arm64 C library, which a loader of the other version would take.
if(EXISTS /usr/lib/aarch64-linux-gnu/libstdc++.so.6)
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
else()
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /usr/aarch64-linux-gnu)
endif()
