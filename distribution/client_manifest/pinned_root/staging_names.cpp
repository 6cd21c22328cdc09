// The token comes from the system's secure random source, by way of the host.
#include "pinned_root/staging_names.h"

#include "host/message.h"
#include "host/value.h"
#include "system/calls.h"

namespace client_manifest::pinned_root {
namespace {

using host::Reference;

Reference random_token() {
  constexpr std::int64_t bytes = 8;
  return host::call_method(global(names().secrets).get(), names().token_hex, host::integer(bytes));
}

}  // namespace

Reference temporary_name(const Reference& name) {
  const Reference process = host::integer(system::process_id());
  const Reference thread = host::call_method(global(names().threading).get(), names().get_ident);
  return host::text(".", name, ".", process, ".", thread, ".", random_token(), ".tmp");
}

Reference transfer_path(const Reference& safe_destination) {
  return host::text(safe_destination, ".", random_token(), ".tmp");
}

}  // namespace client_manifest::pinned_root
