#include "common/id_specification.h"

namespace zam_connector::common::meta {

const zuv::IdSpec& IdSpecification() {
    static const zuv::IdSpec spec{.chars = "/\\\"'`%", .maxIndex = 0};
    return spec;
}

}  // namespace zam_connector::common::meta
