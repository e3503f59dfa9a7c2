# 32-bit x86 build on a 64-bit Debian host with g++-multilib: `make test32`.
# Libraries are looked for only among the 32-bit ones, so a 64-bit library is never picked up
# (the optional test peers that have no 32-bit package are then simply left out).
# SSE2 arithmetic: the x87 unit would keep floats at extended precision, so products of scale
# factors would round differently from the single-precision results that every other target
# (and the tests' reference) computes.
set(CMAKE_C_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")
set(CMAKE_CXX_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-m32")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-m32")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /lib/x86_64-linux-gnu /usr/lib64 /lib64)
