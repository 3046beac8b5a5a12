#include "parser_check.h"
#include "shapes.h"
#include "zam_connector/zam_converter.h"

/// An input is the tree of updates and their statuses in typed JSON.

namespace {

using zam_fuzz::Check;

/// The converted list has the same records in the same order.
void CheckKept(const zuv::TValue& tree, const zuv::TValue& converted, const char* key,
               const std::vector<zam_fuzz::Field>& fields) {
    const auto& before = tree.Find(key)->Get<zuv::Vector>();
    const auto& after = converted.Find(key)->Get<zuv::Vector>();
    Check(before.size() == after.size(), "every record is kept");
    for (std::size_t index = 0; index < before.size(); ++index) {
        Check(zam_fuzz::HaveSameFields(before[index], after[index], fields), "every field is kept");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using zam_connector::zam_converter::ConvertAppUpdates;
    using zam_connector::zam_converter::ParseAppUpdates;
    const auto tree = zam_fuzz::ReadTree(data, size);
    if (!tree) {
        return 0;
    }
    const auto record = zam_fuzz::CheckParse(*tree, zam_fuzz::IsAppUpdates(*tree), ParseAppUpdates);
    if (record) {
        const auto converted = zam_fuzz::CheckConvert(*record, ParseAppUpdates, ConvertAppUpdates);
        CheckKept(*tree, converted, "static_info", zam_fuzz::UpdateInfoFields());
        CheckKept(*tree, converted, "dynamic_info", zam_fuzz::UpdateStatusInfoFields());
    }
    return 0;
}
