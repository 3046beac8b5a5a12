#include "common/id_specification.h"

namespace zam_connector::common::meta {

const zuv::IdSpec& IdSpecification() {
    static const zuv::IdSpec specification{.chars = "/\\\"'`%", .maxIndex = 0};
    return specification;
}

}  // namespace zam_connector::common::meta
