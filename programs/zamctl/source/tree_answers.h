#pragma once

#include <string>

#include "command_set.h"
#include "data_answers.h"

/// Data that is a tree: printed whole or a part of it, and the paths of its parts.

namespace zamctl {

/// As the functions of `data_answers.h`.
std::string FetchPolicy(Context& context, zam_connector::IZamDataProvider& provider,
                        const DataForm& form);
std::string FetchProductSettings(Context& context, zam_connector::IZamDataProvider& provider,
                                 const DataForm& form);

/// Paths one level below what `begun` names, of the tree that the service has now. Throw `Failure`.
Offer OfferPolicyPaths(Context& context, const std::string& begun);
Offer OfferProductSettingsPaths(Context& context, const std::string& begun);

}  // namespace zamctl
