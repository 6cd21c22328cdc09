// How a root is entered, left and closed.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kEnter;
extern const host::Operation kExit;
extern const host::Operation kClose;

}  // namespace client_manifest::pinned_root
