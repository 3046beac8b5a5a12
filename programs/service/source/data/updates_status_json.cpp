#include "data/updates_status_json.h"

#include <charconv>
#include <string>
#include <string_view>

namespace zam_service {

using zam_json::JsonValue;

namespace {

using zam_connector::ZamId;

constexpr std::array<const char*, kUpdateKinds> kListNames = {"approved", "declined", "revoked"};

constexpr std::size_t kDigitsPerByte = 2;
constexpr int kHexadecimal = 16;

ZamId ReadId(const JsonValue& value) {
    const std::string text = value.IsText() ? value.Text() : "";
    ZamId id{};
    bool isGood = text.size() == kDigitsPerByte * id.size();
    for (std::size_t index = 0; isGood && index < id.size(); ++index) {
        const char* const digits = text.data() + kDigitsPerByte * index;
        unsigned char byte = 0;
        const auto result = std::from_chars(digits, digits + kDigitsPerByte, byte, kHexadecimal);
        isGood = result.ec == std::errc() && result.ptr == digits + kDigitsPerByte;
        id.at(index) = std::byte{byte};
    }
    if (!isGood) {
        value.Refuse("a text of 32 hexadecimal digits");
    }
    return id;
}

std::string_view Bytes(const std::vector<ZamId>& ids) {
    return {reinterpret_cast<const char*>(ids.data()), ids.size() * sizeof(ZamId)};
}

}  // namespace

UpdatesSnapshot ReadUpdatesStatus(const JsonValue& root) {
    root.CheckMembers({kListNames[0], kListNames[1], kListNames[2]});
    UpdatesSnapshot snapshot;
    ContentHash hash;
    for (std::size_t kind = 0; kind < kUpdateKinds; ++kind) {
        if (const auto list = root.Find(kListNames.at(kind))) {
            for (const JsonValue& value : list->Elements(0, kMaxUpdateIds)) {
                snapshot.lists.at(kind).push_back(ReadId(value));
            }
        }
        hash.AddBytes(Bytes(snapshot.lists.at(kind)));
    }
    snapshot.hash = hash.Value();
    return snapshot;
}

}  // namespace zam_service
