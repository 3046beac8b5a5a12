#include "qel/result_code.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>

#include "qel/utf.h"

namespace qel {
namespace {

constexpr std::string_view kUnknown = "Unknown result code";

struct Row {
    std::uint32_t code;
    std::string_view text;
};

// Both tables are ordered by code, for the binary search.
constexpr std::array kGeneralCodes = std::to_array<Row>({
    {0x00000000U, "No error"},
    {0x00000001U, "False"},
    {0x80000001U, "Interface not supported"},
    {0x80000040U, "Unexpected"},
    {0x80000041U, "Out of memory"},
    {0x80000042U, "Not supported"},
    {0x80000043U, "Not implemented"},
    {0x80000044U, "Buffer too small"},
    {0x80000045U, "Access denied"},
    {0x80000046U, "Invalid argument"},
    {0x8000004AU, "Not matched"},
    {0x8000004BU, "Unspecified error"},
    {0x8000004CU, "Not found"},
    {0x8000004DU, "Found"},
    {0x8000004FU, "Locked"},
    {0x80000050U, "Not locked"},
    {0x80000051U, "Operation cancelled"},
    {0x80000057U, "Method not found"},
    {0x80000058U, "Stack is empty"},
    {0x80000059U, "Media error"},
    {0x8000005AU, "Invalid signature"},
    {0x8000005BU, "Invalid version"},
    {0x8000005CU, "Invalid size"},
    {0x8000005DU, "Invalid type"},
    {0x8000005EU, "Invalid index"},
    {0x80000062U, "Out of space"},
    {0x80000063U, "Not ready"},
    {0x80000064U, "Less than"},
    {0x80000065U, "More than"},
    {0x80000066U, "Prohibited"},
    {0x80000067U, "Already done"},
    {0x80000068U, "Need reboot"},
    {0x80000069U, "Bases corrupted"},
    {0x8000006AU, "Invalid state"},
    {0x8000006BU, "Not initialized"},
    {0x8000006CU, "Insufficient resources"},
    {0x80000071U, "Invalid result"},
    {0x80000072U, "Unknown exception"},
    {0x80000076U, "Meta information not found"},
    {0x80000077U, "Numerical type overflow"},
    {0x80000078U, "File is too big"},
    {0x80000079U, "Trace level ok"},
    {0x8000007AU, "Trace level prohibited"},
    {0x80000100U, "Class not found"},
    {0x80000101U, "Settings are required"},
    {0x80000102U, "Unexpected settings"},
    {0x80000103U, "Wrong settings type"},
    {0x80000104U, "Wrong settings revision"},
    {0x80000105U, "Settings not found"},
    {0x80000106U, "Object is untrusted"},
    {0x80000180U, "Property not found"},
    {0x80000221U, "Operation timeout"},
    {0x80000300U, "Invalid symbol"},
    {0x80000301U, "Non dec symbol"},
    {0x80000302U, "Non hex symbol"},
    {0x80000303U, "Non base64 symbol"},
    {0x80000310U, "Syntax error"},
    {0x80000311U, "GUID syntax error"},
    {0x80000312U, "OID syntax error"},
    {0x80000313U, "DateTime syntax error"},
});

constexpr std::array kPlatformCodes = std::to_array<Row>({
    {0x80010100U, "Unspecified platform error"},
    {0x80010101U, "Invalid handle"},
    {0x80010102U, "File not found"},
    {0x80010103U, "Path not found"},
    {0x80010104U, "Sharing violation"},
    {0x80010105U, "Already exists"},
    {0x80010106U, "Wait abandoned"},
    {0x80010107U, "Symbol not found"},
    {0x80010108U, "Sxs is incorrect"},
    {0x80010109U, "Invalid path name"},
    {0x80010110U, "Cannot open an anonymous level security token"},
    {0x80010111U, "Password is invalid"},
    {0x80010112U, "Module not found"},
    {0x80010113U, "System image bad signature"},
    {0x80010114U, "Cloud file request aborted"},
    {0x80010115U, "Memory mapping failed"},
    {0x80010116U, "Network error"},
});

constexpr bool IsBelow(const Row& left, const Row& right) {
    return left.code < right.code;
}

static_assert(std::is_sorted(kGeneralCodes.begin(), kGeneralCodes.end(), IsBelow));
static_assert(std::is_sorted(kPlatformCodes.begin(), kPlatformCodes.end(), IsBelow));

template <std::size_t kRows>
std::string_view Find(const std::array<Row, kRows>& table, std::uint32_t code) noexcept {
    const auto* const row = std::lower_bound(
        table.begin(), table.end(), code,
        [](const Row& candidate, std::uint32_t wanted) { return candidate.code < wanted; });
    return row != table.end() && row->code == code ? row->text : kUnknown;
}

}  // namespace

std::string_view rtl_result_code_message(int code) noexcept {
    return Find(kGeneralCodes, static_cast<std::uint32_t>(code));
}

std::string_view ResultCodeMessage(int code) noexcept {
    const auto bits = static_cast<std::uint32_t>(code);
    const std::uint32_t facility = (bits >> 16U) & 0x7FFFU;
    switch (facility) {
        case 0:
            return rtl_result_code_message(code);
        case 1:
            return Find(kPlatformCodes, bits);
        default:
            return kUnknown;
    }
}

std::u16string ResultCodeText(int code) {
    constexpr std::u16string_view kDigits = u"0123456789ABCDEF";
    const auto bits = static_cast<std::uint32_t>(code);
    std::u16string text = ToUtf16(ResultCodeMessage(code));
    text += u" = 0x";
    for (unsigned shift = 32; shift > 0;) {
        shift -= 4;
        text.push_back(kDigits[(bits >> shift) & 0xFU]);
    }
    return text;
}

}  // namespace qel
