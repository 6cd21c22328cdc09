# Builds for 64-bit Windows with Debian's cross compiler, against the universal C runtime, which is
# the interpreter's own: descriptors mean nothing to another one.
#
# CLIENT_MANIFEST_WINDOWS_HOST is the folder that host.sh has made.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CLIENT_MANIFEST_WINDOWS_HOST)

set(CMAKE_CXX_FLAGS_INIT "-D_UCRT -specs=${CLIENT_MANIFEST_WINDOWS_HOST}/universal.specs")

# Nothing but the system and the interpreter has to be there at run time. A symbol is imported
# because its declaration says so, and never for want of a definition.
string(JOIN " " CMAKE_MODULE_LINKER_FLAGS_INIT
  -static -fstack-protector-strong -Wl,--disable-auto-import
  # The compiler's thread library was built for the old runtime. In the universal one this function
  # has another name, as <setjmp.h> knows.
  -Wl,--defsym,_setjmp=__intrinsic_setjmpex)

set(Python_INCLUDE_DIR ${CLIENT_MANIFEST_WINDOWS_HOST}/include)
set(Python_LIBRARY ${CLIENT_MANIFEST_WINDOWS_HOST}/libpython311.a)
