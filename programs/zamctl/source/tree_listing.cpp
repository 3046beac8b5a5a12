#include "tree_listing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string_view>
#include <type_traits>
#include <variant>

#include "printable.h"
#include "zuv/for_each.h"
#include "zuv/path.h"

namespace zamctl {
namespace {

constexpr std::size_t kIndent = 2;

/// Whether a key can stand without quotation marks and still not be taken for something else.
bool IsPlainKey(std::string_view key) {
    constexpr std::string_view kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.";
    return !key.empty() && key.find_first_not_of(kPlain) == std::string_view::npos;
}

std::string LabelOf(const zuv::Level& level) {
    if (const auto* const position = std::get_if<unsigned long>(&level)) {
        return fmt::format("[{}]", *position);
    }
    const auto& key = std::get<std::string>(level);
    return IsPlainKey(key) ? key : Quote(key);
}

std::string BlobText(const zuv::Blob& blob) {
    std::string text = fmt::format("blob of {} bytes", blob.size());
    const auto shown = static_cast<std::ptrdiff_t>(std::min(blob.size(), kMaxListedBlobBytes));
    text += blob.empty() ? "" : " ";
    std::for_each(blob.begin(), blob.begin() + shown, [&text](unsigned char byte) {
        fmt::format_to(std::back_inserter(text), "{:02x}", byte);
    });
    return text += blob.size() > kMaxListedBlobBytes ? "..." : "";
}

/// A number with what tells it from a whole one.
std::string DoubleText(double number) {
    std::string text = fmt::format("{}", number);
    const bool isWhole = std::isfinite(number) && text.find_first_of(".e") == std::string::npos;
    return text += isWhole ? ".0" : "";
}

/// A value without what is below it. The kinds that typed JSON writes without a name have none here
/// either.
std::string ValueText(const zuv::TValue& value) {
    if (value.IsValueless()) {
        return "no value";
    }
    return value.Visit([&value](const auto& plain) -> std::string {
        using Plain = std::remove_cvref_t<decltype(plain)>;
        if constexpr (std::is_same_v<Plain, zuv::None>) {
            return "none";
        } else if constexpr (std::is_same_v<Plain, zuv::Vector>) {
            return "[]";
        } else if constexpr (std::is_same_v<Plain, zuv::Map>) {
            return "{}";
        } else if constexpr (std::is_same_v<Plain, std::string>) {
            return Quote(plain);
        } else if constexpr (std::is_same_v<Plain, zuv::Blob>) {
            return BlobText(plain);
        } else if constexpr (std::is_same_v<Plain, double>) {
            return DoubleText(plain);
        } else if constexpr (std::is_same_v<Plain, qor::types::Timestamp>) {
            return fmt::format("timestamp {}", plain.Count());
        } else if constexpr (std::is_same_v<Plain, bool> || std::is_same_v<Plain, long>) {
            return fmt::format("{}", plain);
        } else {
            return fmt::format("{} {}", zuv::KindName(value.Kind()), +plain);
        }
    });
}

}  // namespace

std::string ListTree(const zuv::TValue& tree) {
    if (!tree.HasChildren()) {
        return ValueText(tree);
    }
    std::string listing;
    zuv::Path path;
    zuv::ForEach(
        tree,
        [&listing](const zuv::Path& at, const zuv::TValue& node) {
            if (!at.empty()) {
                listing += listing.empty() ? "" : "\n";
                listing.append(kIndent * (at.size() - 1), ' ');
                listing += LabelOf(at.back());
                listing += node.HasChildren() ? ":" : ": " + ValueText(node);
            }
            return zuv::for_each::Option::Continue;
        },
        path);
    return listing;
}

}  // namespace zamctl
