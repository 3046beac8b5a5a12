#include "shapes.h"

#include <algorithm>
#include <string>

namespace zam_fuzz {
namespace {

using zuv::Kind;

const std::vector<Field>& EulaFields() {
    static const std::vector<Field> fields{
        {.key = "updeulaid", .kind = Kind::Blob, .isId = true},
        {.key = "updeulareleasetime", .kind = Kind::Int64},
        {.key = "updlocinfo", .kind = Kind::Int32},
    };
    return fields;
}

bool IsId(const zuv::TValue& value) {
    constexpr std::size_t kIdBlobBytes = 17;
    const auto& blob = value.Get<zuv::Blob>();
    return blob.size() == kIdBlobBytes && blob.back() == 0;
}

bool HasFields(const zuv::TValue& tree, const std::vector<Field>& fields) {
    return tree.Is<zuv::Map>() &&
           std::all_of(fields.begin(), fields.end(), [&](const Field& field) {
               const zuv::TValue* const value = tree.Find(field.key);
               if (value == nullptr) {
                   return !field.isRequired;
               }
               return value->Kind() == field.kind && (!field.isId || IsId(*value));
           });
}

bool IsVectorOf(bool (*isElement)(const zuv::TValue&), const zuv::TValue* tree) {
    const auto* const vector = tree == nullptr ? nullptr : tree->GetIf<zuv::Vector>();
    return vector != nullptr && std::all_of(vector->begin(), vector->end(), isElement);
}

bool IsString(const zuv::TValue& tree) {
    return tree.Is<std::string>();
}

}  // namespace

const std::vector<Field>& UpdateInfoFields() {
    static const std::vector<Field> fields{
        {.key = "id", .kind = Kind::Blob, .isId = true},
        {.key = "releasetime", .kind = Kind::Timestamp},
        {.key = "locid", .kind = Kind::Int32},
        {.key = "updlocinfo", .kind = Kind::Int32},
        {.key = "updname", .kind = Kind::String},
        {.key = "updurl", .kind = Kind::String},
        {.key = "importance", .kind = Kind::Int32},
        {.key = "description", .kind = Kind::String},
        {.key = "is_full_fistributive", .kind = Kind::Bool},
        {.key = "updeulahaspp", .kind = Kind::Bool},
        {.key = "updstatus", .kind = Kind::Int32},
        {.key = "updeulaid", .kind = Kind::Blob, .isRequired = false, .isId = true},
        {.key = "notuninstallable", .kind = Kind::Bool, .isRequired = false},
        {.key = "target_product", .kind = Kind::String, .isRequired = false},
        {.key = "target_internal_version", .kind = Kind::String, .isRequired = false},
        {.key = "target_display_name", .kind = Kind::String, .isRequired = false},
        {.key = "target_display_version", .kind = Kind::String, .isRequired = false},
        {.key = "required_plugin_version", .kind = Kind::String, .isRequired = false},
        {.key = "required_plugin_url", .kind = Kind::String, .isRequired = false},
        {.key = "required_zamsrv_version", .kind = Kind::String, .isRequired = false},
    };
    return fields;
}

const std::vector<Field>& UpdateStatusInfoFields() {
    static const std::vector<Field> fields{
        {.key = "id", .kind = Kind::Blob, .isId = true},
        {.key = "installtime", .kind = Kind::Timestamp},
        {.key = "updstatus", .kind = Kind::Int32},
        {.key = "installerrorcode", .kind = Kind::Int32},
        {.key = "installerrortext", .kind = Kind::String},
        {.key = "releasetime", .kind = Kind::Timestamp},
    };
    return fields;
}

bool IsUpdateInfo(const zuv::TValue& tree) {
    return HasFields(tree, UpdateInfoFields());
}

bool IsUpdateStatusInfo(const zuv::TValue& tree) {
    return HasFields(tree, UpdateStatusInfoFields());
}

bool IsAppUpdates(const zuv::TValue& tree) {
    return IsVectorOf(IsUpdateInfo, tree.Find("static_info")) &&
           IsVectorOf(IsUpdateStatusInfo, tree.Find("dynamic_info"));
}

bool IsEula(const zuv::TValue& tree) {
    const zuv::TValue* const text = tree.Find("updeula");
    return HasFields(tree, EulaFields()) && text != nullptr && IsText(*text);
}

bool IsEulas(const zuv::TValue& tree) {
    return IsVectorOf(IsEula, &tree);
}

bool IsText(const zuv::TValue& tree) {
    return IsString(tree) || IsVectorOf(IsString, &tree);
}

bool HaveSameFields(const zuv::TValue& left, const zuv::TValue& right,
                    const std::vector<Field>& fields) {
    return std::all_of(fields.begin(), fields.end(), [&](const Field& field) {
        const zuv::TValue* const ours = left.Find(field.key);
        const zuv::TValue* const theirs = right.Find(field.key);
        return ours == nullptr || theirs == nullptr ? ours == theirs : ours->IsIdenticalTo(*theirs);
    });
}

}  // namespace zam_fuzz
