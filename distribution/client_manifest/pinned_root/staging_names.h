// Names for files that are being made: no two writers share one, in this process or in others.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

// ".{name}.{process}.{thread}.{token}.tmp": one segment, beside the leaf `name`.
[[nodiscard]] host::Reference temporary_name(const host::Reference& name);

// "{safe_destination}.{token}.tmp": a whole contained path, beside the destination.
[[nodiscard]] host::Reference transfer_path(const host::Reference& safe_destination);

}  // namespace client_manifest::pinned_root
