// The numbers of the Windows interfaces that the boundary speaks: each is a class constant of
// _WindowsHandleFileSystem under its name, and a constant here.
#pragma once

#include <cstdint>

// In the order of the class body.
#define CLIENT_MANIFEST_NATIVE_CONSTANTS(CONSTANT)   \
  CONSTANT(FILE_ATTRIBUTE_DIRECTORY, 0x10)           \
  CONSTANT(FILE_ATTRIBUTE_REPARSE_POINT, 0x400)      \
  CONSTANT(FILE_ATTRIBUTE_NORMAL, 0x80)              \
  CONSTANT(FILE_READ_DATA, 0x1)                      \
  CONSTANT(FILE_LIST_DIRECTORY, 0x1)                 \
  CONSTANT(FILE_TRAVERSE, 0x20)                      \
  CONSTANT(FILE_READ_ATTRIBUTES, 0x80)               \
  CONSTANT(FILE_WRITE_DATA, 0x2)                     \
  CONSTANT(FILE_APPEND_DATA, 0x4)                    \
  CONSTANT(DELETE, 0x10000)                          \
  CONSTANT(SYNCHRONIZE, 0x100000)                    \
  CONSTANT(FILE_SHARE_READ, 0x1)                     \
  CONSTANT(FILE_SHARE_WRITE, 0x2)                    \
  CONSTANT(FILE_SHARE_DELETE, 0x4)                   \
  CONSTANT(FILE_OPEN, 0x1)                           \
  CONSTANT(FILE_CREATE, 0x2)                         \
  CONSTANT(FILE_OPEN_IF, 0x3)                        \
  CONSTANT(FILE_DIRECTORY_FILE, 0x1)                 \
  CONSTANT(FILE_NON_DIRECTORY_FILE, 0x40)            \
  CONSTANT(FILE_OPEN_REPARSE_POINT, 0x200000)        \
  CONSTANT(FILE_SYNCHRONOUS_IO_NONALERT, 0x20)       \
  CONSTANT(OBJ_CASE_INSENSITIVE, 0x40)               \
  CONSTANT(OPEN_EXISTING, 0x3)                       \
  CONSTANT(FILE_FLAG_BACKUP_SEMANTICS, 0x2000000)    \
  CONSTANT(FILE_FLAG_OPEN_REPARSE_POINT, 0x200000)   \
  CONSTANT(FILE_ID_INFO_CLASS, 18)                   \
  CONSTANT(FILE_NAMES_INFORMATION_CLASS, 12)         \
  CONSTANT(FILE_RENAME_INFORMATION_CLASS, 10)        \
  CONSTANT(FILE_DISPOSITION_INFORMATION_CLASS, 13)   \
  CONSTANT(STATUS_NO_MORE_FILES, 0x80000006)         \
  CONSTANT(STATUS_OBJECT_NAME_NOT_FOUND, 0xC0000034) \
  CONSTANT(STATUS_OBJECT_PATH_NOT_FOUND, 0xC000003A) \
  CONSTANT(STATUS_OBJECT_NAME_COLLISION, 0xC0000035) \
  CONSTANT(STATUS_DELETE_PENDING, 0xC0000056)

// In a scope and under names of their own: the system's headers define some of them as macros.
namespace client_manifest::windows::native {

#define CLIENT_MANIFEST_NATIVE_CONSTANT(name, value) inline constexpr std::uint32_t k##name = value;
CLIENT_MANIFEST_NATIVE_CONSTANTS(CLIENT_MANIFEST_NATIVE_CONSTANT)
#undef CLIENT_MANIFEST_NATIVE_CONSTANT

}  // namespace client_manifest::windows::native
