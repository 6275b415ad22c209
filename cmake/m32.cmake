# Builds with 32-bit pointers and long, which the smaller chips have.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
# Debian's gcc-multilib, which links <asm/...> for -m32, excludes every cross compiler; the headers
# themselves are the native ones.
set(CMAKE_CXX_FLAGS_INIT "-m32 -funsigned-char -idirafter /usr/include/x86_64-linux-gnu")
set(CMAKE_C_FLAGS_INIT ${CMAKE_CXX_FLAGS_INIT})
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(OSD_GTEST_SOURCE /usr/src/googletest)
