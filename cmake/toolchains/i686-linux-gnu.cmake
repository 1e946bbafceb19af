# Cross build for 32-bit x86 Linux with Debian's cross compiler
# (crossbuild-essential-i386).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_FIND_ROOT_PATH /usr/i686-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Programs run under qemu-user against Debian's i386 run-time libraries
# (libc6:i386 and libstdc++6:i386, which bring the character set
# converters iconv loads) where they are installed, else against the cross
# compiler's. The two must not mix: the host's library cache lists the
# i386 C library, which a loader of the other version would take.
if(EXISTS /usr/lib/i386-linux-gnu/libstdc++.so.6)
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-i386)
else()
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-i386 -L /usr/i686-linux-gnu)
endif()
