#include <algorithm>
#include <string>

#include "parser_check.h"
#include "shapes.h"
#include "zam_connector/zam_converter.h"

/// An input is a tree in typed JSON that may be a text in pieces.

namespace {

using zam_fuzz::Check;

std::string Joined(const zuv::TValue& tree) {
    if (const auto* whole = tree.GetIf<std::string>()) {
        return *whole;
    }
    std::string text;
    for (const zuv::TValue& piece : tree.Get<zuv::Vector>()) {
        text += piece.Get<std::string>();
    }
    return text;
}

/// All pieces have the full size, the last one excepted.
void CheckPieces(const zuv::TValue& tree, std::size_t textBytes, std::size_t pieceSize) {
    const auto& pieces = tree.Get<zuv::Vector>();
    Check(pieces.size() == (textBytes + pieceSize - 1) / pieceSize, "no piece is too many");
    std::size_t left = textBytes;
    for (const zuv::TValue& piece : pieces) {
        const std::size_t expected = std::min(left, pieceSize);
        Check(piece.Get<std::string>().size() == expected, "a piece has the size asked for");
        left -= expected;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using zam_connector::zam_converter::ConvertStringToZamParams;
    using zam_connector::zam_converter::ParseStringFromZamParams;
    const auto tree = zam_fuzz::ReadTree(data, size);
    if (!tree) {
        return 0;
    }
    const auto text =
        zam_fuzz::CheckParse(*tree, zam_fuzz::IsText(*tree), ParseStringFromZamParams);
    if (!text) {
        return 0;
    }
    Check(*text == Joined(*tree), "a text is its pieces in order");
    for (const long pieceSize : {1L, 5L, 4096L}) {
        const auto pieces = zam_fuzz::CheckConvert(
            *text, ParseStringFromZamParams, [pieceSize](const std::string& parsed) {
                return ConvertStringToZamParams(parsed, pieceSize);
            });
        CheckPieces(pieces, text->size(), static_cast<std::size_t>(pieceSize));
    }
    Check(!ConvertStringToZamParams(*text, 0), "pieces of no size are refused");
    return 0;
}
