# Cross build for 64-bit ARM Linux with Debian's g++-aarch64-linux-gnu, against the arm64
# packages installed next to the host's (multiarch: /usr/lib/aarch64-linux-gnu). Test
# programs run under qemu-aarch64 with the multiarch loader and libraries (libc6:arm64 in
# /lib). Not with -L /usr/aarch64-linux-gnu: the cross toolchain's own libc there, mixed
# with the multiarch libraries, hangs the first pthread_create.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
# Libraries and package files of the target only; headers are shared by the architectures.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
