#include "zam_connector/zam_converter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>

#include "zam_converter_guard.h"

namespace zam_connector::zam_converter {
namespace {

constexpr char kSourceFile[] = "zam_converter";
/// Bytes of an identifier in a tree: its own, then a zero byte.
constexpr std::size_t kIdBlobBytes = std::tuple_size_v<ZamId> + 1;

static_assert(sizeof(unsigned long) == 8, "hashes have 64 bits");
static_assert(std::is_same_v<long, decltype(qor::types::Timestamp().Count())>,
              "counts of times are carried as they stand");

/// What `std::stoul` can be asked for. Other bases are refused here, because C libraries differ in
/// what they make of them.
bool IsBase(int base) noexcept {
    return base == 0 || (base >= 2 && base <= 36);
}

}  // namespace

std::optional<unsigned long> ParseZamHash(const zuv::TValue& node, int base) noexcept {
    return Guarded(
        common::Here(kSourceFile, "ParseZamHash"), "ParseZamHash failed with exception [{} : {}]",
        [&]() -> std::optional<unsigned long> {
            if (!IsBase(base)) {
                throw std::invalid_argument(fmt::format("base {} is neither 0 nor 2 to 36", base));
            }
            const std::string none;
            const auto* const text = node.GetIf<std::string>();
            return std::stoul(text == nullptr ? none : *text, nullptr, base);
        });
}

std::optional<unsigned long> ParseZamHashFromBase64(const zuv::TValue& node) noexcept {
    return ParseZamHash(node, 10);
}

std::optional<unsigned long> ParseZamHashFromHex(const zuv::TValue& node) noexcept {
    return ParseZamHash(node, 16);
}

std::optional<std::string> ConvertZamHashToBase64(unsigned long hash) noexcept {
    return Guarded(common::Here(kSourceFile, "ConvertZamHashToBase64"),
                   "ConvertZamHashToBase64 failed with exception [{} : {}]",
                   [&]() -> std::optional<std::string> { return std::to_string(hash); });
}

std::optional<std::string> ConvertZamHashToHex(unsigned long hash) noexcept {
    return Guarded(common::Here(kSourceFile, "ConvertZamHashToHex"),
                   "ConvertZamHashToHex failed with exception [{} : {}]",
                   [&]() -> std::optional<std::string> { return fmt::format("{0:x}", hash); });
}

std::optional<ZamId> ParseZamIdType(const zuv::TValue& node) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "ParseZamIdType");
    return Guarded(site, "ConvertBlobToZamIdType failed with exception [{} : {}]",
                   [&]() -> std::optional<ZamId> {
                       const auto& blob = node.Get<zuv::Blob>();
                       if (blob.size() != kIdBlobBytes) {
                           common::Log(zor::logger::kLevelError, site,
                                       "ConvertBlobToZamIdType: Ivalid blob size [ {} != {} ]",
                                       blob.size(), kIdBlobBytes);
                           return std::nullopt;
                       }
                       if (blob.back() != 0) {
                           return LogFailed(site, "ConvertBlobToZamIdType: Invalid blob");
                       }
                       ZamId id;
                       std::transform(blob.begin(), blob.end() - 1, id.begin(),
                                      [](unsigned char byte) { return std::byte{byte}; });
                       return id;
                   });
}

std::optional<std::vector<unsigned char>> ConvertZamIdTypeToBlob(const ZamId& id) noexcept {
    return Guarded(common::Here(kSourceFile, "ConvertZamIdTypeToBlob"),
                   "ConvertZamIdTypeToBlob failed with exception [{} : {}]",
                   [&]() -> std::optional<std::vector<unsigned char>> {
                       std::vector<unsigned char> blob(kIdBlobBytes);
                       std::transform(id.begin(), id.end(), blob.begin(),
                                      std::to_integer<unsigned char>);
                       return blob;
                   });
}

std::optional<long> ConvertTimeStamp(qor::types::Timestamp time) noexcept {
    return time.Count();
}

std::optional<qor::types::Timestamp> ParseTimeStamp(long count) noexcept {
    return qor::types::Timestamp(count);
}

std::optional<unsigned long> ZamParamsListSize(const zuv::TValue& node) noexcept {
    return Guarded(
        common::Here(kSourceFile, "ZamParamsListSize"),
        "ZamParamsListSize failed with exception [{} : {}]",
        [&]() -> std::optional<unsigned long> { return node.Get<zuv::Vector>().size(); });
}

}  // namespace zam_connector::zam_converter
