// The operations of _WindowsHandleFileSystem, in the order of the class body.
#pragma once

#include "client_manifest.h"

namespace client_manifest::windows {

extern const host::Operation kNativeInit;
extern const host::Operation kSplitRootPath;
extern const host::Operation kOpenVolume;
extern const host::Operation kShareAccess;
extern const host::Operation kDuplicate;
extern const host::Operation kCloseHandle;
extern const host::Operation kIdentity;
extern const host::Operation kKind;
extern const host::Operation kIsReparse;
extern const host::Operation kAttributes;
extern const host::Operation kOpenDirectory;
extern const host::Operation kOpenRegular;
extern const host::Operation kOpenEntry;
extern const host::Operation kOpenRelative;
extern const host::Operation kStat;
extern const host::Operation kFileObject;
extern const host::Operation kListNames;
extern const host::Operation kRename;
extern const host::Operation kDelete;
extern const host::Operation kRaiseStatus;
extern const host::Operation kHandleValue;

}  // namespace client_manifest::windows
