#include "record_json/base64_text.h"

#include "json_text/base64.h"

namespace zam_json {

std::string Base64Text(std::string_view bytes) {
    return EncodeBase64(bytes);
}

}  // namespace zam_json
