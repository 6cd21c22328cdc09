// The variable-length record that the Windows kernel takes for a rename: its layout for a width of
// pointers, and its bytes. Pure arithmetic, the same on every platform.
#pragma once

#include "client_manifest.h"

namespace client_manifest::windows {

[[nodiscard]] host::Reference make_rename_layout_class(PyObject* dataclass, PyObject* module_name);

extern const host::Operation kWindowsFileRenameInformationLayout;
extern const host::Operation kWindowsFileRenameInformationBytes;

}  // namespace client_manifest::windows
