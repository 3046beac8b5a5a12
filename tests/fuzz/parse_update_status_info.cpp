#include "parser_check.h"
#include "shapes.h"
#include "zam_connector/zam_converter.h"

/// An input is the tree of a status in typed JSON.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using zam_connector::zam_converter::ConvertUpdateStatusInfo;
    using zam_connector::zam_converter::ParseUpdateStatusInfo;
    const auto tree = zam_fuzz::ReadTree(data, size);
    if (!tree) {
        return 0;
    }
    const auto record =
        zam_fuzz::CheckParse(*tree, zam_fuzz::IsUpdateStatusInfo(*tree), ParseUpdateStatusInfo);
    if (record) {
        const auto converted =
            zam_fuzz::CheckConvert(*record, ParseUpdateStatusInfo, ConvertUpdateStatusInfo);
        zam_fuzz::Check(
            zam_fuzz::HaveSameFields(*tree, converted, zam_fuzz::UpdateStatusInfoFields()),
            "every field is kept");
    }
    return 0;
}
