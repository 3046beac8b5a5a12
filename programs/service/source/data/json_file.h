#pragma once

#include "json_text/json_document.h"

/// The JSON files of the data folder are read as every other document with places is.

namespace zam_service {

using zam_json::JsonDocument;
using zam_json::JsonError;
using zam_json::JsonValue;
using zam_json::kMaxJsonDepth;

}  // namespace zam_service
