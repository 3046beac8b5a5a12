#include "parser_check.h"
#include "shapes.h"
#include "zam_connector/zam_converter.h"

/// An input is the tree of an agreement in typed JSON.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using zam_connector::zam_converter::ConvertEulaData;
    using zam_connector::zam_converter::ParseEula;
    const auto tree = zam_fuzz::ReadTree(data, size);
    if (!tree) {
        return 0;
    }
    const auto record = zam_fuzz::CheckParse(*tree, zam_fuzz::IsEula(*tree), ParseEula);
    if (!record) {
        return 0;
    }
    for (const int pieceSize : {1, 5, 4096}) {
        zam_fuzz::CheckConvert(*record, ParseEula, [pieceSize](const auto& parsed) {
            return ConvertEulaData(parsed, pieceSize);
        });
    }
    zam_fuzz::Check(!ConvertEulaData(*record, 0), "pieces of no size are refused");
    return 0;
}
