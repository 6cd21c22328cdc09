// Which class the name PinnedRoot stands for on a platform.
#pragma once

#include "client_manifest.h"

namespace client_manifest::frame {

extern const host::Operation kPinnedRootClass;

}  // namespace client_manifest::frame
