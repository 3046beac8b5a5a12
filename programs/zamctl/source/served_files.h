#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "command_set.h"

/// Files that can be fetched from a service of this machine. No operation lists them: their names
/// are looked up in the folder of the service that runs for the same runtime directory, when this
/// user may read it.

namespace zamctl {

/// The folder of those files; empty when no service of that directory runs here. `processes` is
/// where the system shows them.
std::optional<std::string> FindServedFolder(const std::string& runtimeDirectory,
                                            const std::filesystem::path& processes);

/// Names in the folder that `begun` goes into.
Offer OfferServedFiles(Context& context, const std::string& begun);

}  // namespace zamctl
