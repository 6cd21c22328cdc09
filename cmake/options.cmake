# Compiler options that every target shares: warnings, hardening, sanitizers.

add_library(client_manifest_options INTERFACE)

target_compile_options(client_manifest_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference -Wextra-semi -Wimplicit-fallthrough
  -fstack-protector-strong)
if(CLIENT_MANIFEST_WARNINGS_AS_ERRORS)
  target_compile_options(client_manifest_options INTERFACE -Werror)
endif()

if(CMAKE_INTERPROCEDURAL_OPTIMIZATION AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_link_options(client_manifest_options INTERFACE -flto=auto)
endif()

if(CLIENT_MANIFEST_SANITIZE)
  target_compile_options(client_manifest_options INTERFACE
    -fsanitize=${CLIENT_MANIFEST_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(client_manifest_options INTERFACE -fsanitize=${CLIENT_MANIFEST_SANITIZE})
else()
  # glibc's checked functions would stand between a sanitizer and what it watches.
  target_compile_options(client_manifest_options INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()
