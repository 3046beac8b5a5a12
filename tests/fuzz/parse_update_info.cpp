#include "parser_check.h"
#include "shapes.h"
#include "zam_connector/zam_converter.h"

/// An input is the tree of a update in typed JSON.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using zam_connector::zam_converter::ConvertUpdateInfo;
    using zam_connector::zam_converter::ParseUpdateInfo;
    const auto tree = zam_fuzz::ReadTree(data, size);
    if (!tree) {
        return 0;
    }
    const auto record = zam_fuzz::CheckParse(*tree, zam_fuzz::IsUpdateInfo(*tree), ParseUpdateInfo);
    if (record) {
        const auto converted = zam_fuzz::CheckConvert(*record, ParseUpdateInfo, ConvertUpdateInfo);
        zam_fuzz::Check(zam_fuzz::HaveSameFields(*tree, converted, zam_fuzz::UpdateInfoFields()),
                        "every field is kept");
    }
    return 0;
}
