#include "converter_fixture.h"

#include <fmt/format.h>

#include <cstddef>
#include <string_view>
#include <utility>

namespace zam_connector::test {

using qor::types::Timestamp;

ZamId MakeId(unsigned char first) {
    ZamId id{};
    for (std::byte& byte : id) {
        byte = std::byte{first++};
    }
    return id;
}

zuv::Blob MakeIdBlob(unsigned char first) {
    zuv::Blob blob;
    while (blob.size() < 16) {
        blob.push_back(first++);
    }
    blob.push_back(0);
    return blob;
}

UpdateInfo SampleUpdate() {
    UpdateInfo info;
    info.id = MakeId(0x10);
    info.releaseTime = Timestamp(1001);
    info.localeId = 1033;
    info.localeInfo = -2;
    info.name = "name";
    info.url = "url";
    info.importance = 3;
    info.description = "description";
    info.isFullDistributive = true;
    info.eulaHasPrivacyPolicy = false;
    info.status = 4;
    info.eulaId = MakeId(0x30);
    info.notUninstallable = true;
    info.targetProduct = "product";
    info.targetInternalVersion = "internal version";
    info.targetDisplayName = "display name";
    info.targetDisplayVersion = "display version";
    info.requiredPluginVersion = "plugin version";
    info.requiredPluginUrl = "plugin url";
    info.requiredZamsrvVersion = "zamsrv version";
    return info;
}

zuv::TValue SampleUpdateTree() {
    return zuv::Map{
        {"id", MakeIdBlob(0x10)},
        {"releasetime", Timestamp(1001)},
        {"locid", 1033},
        {"updlocinfo", -2},
        {"updname", "name"},
        {"updurl", "url"},
        {"importance", 3},
        {"description", "description"},
        {"is_full_fistributive", true},
        {"updeulahaspp", false},
        {"updstatus", 4},
        {"updeulaid", MakeIdBlob(0x30)},
        {"notuninstallable", true},
        {"target_product", "product"},
        {"target_internal_version", "internal version"},
        {"target_display_name", "display name"},
        {"target_display_version", "display version"},
        {"required_plugin_version", "plugin version"},
        {"required_plugin_url", "plugin url"},
        {"required_zamsrv_version", "zamsrv version"},
    };
}

UpdateStatusInfo SampleStatus() {
    UpdateStatusInfo info;
    info.id = MakeId(0x50);
    info.installTime = Timestamp(2002);
    info.status = 5;
    info.installErrorCode = -6;
    info.installErrorText = "error text";
    info.releaseTime = Timestamp(-3003);
    return info;
}

zuv::TValue SampleStatusTree() {
    return zuv::Map{
        {"id", MakeIdBlob(0x50)},
        {"installtime", Timestamp(2002)},
        {"updstatus", 5},
        {"installerrorcode", -6},
        {"installerrortext", "error text"},
        {"releasetime", Timestamp(-3003)},
    };
}

AppEula SampleEula() {
    return {MakeId(0x70), Timestamp(4004), "Text of the agreement", 7};
}

zuv::TValue SampleEulaTree() {
    return zuv::Map{
        {"updeulaid", MakeIdBlob(0x70)},
        {"updeulareleasetime", 4004L},
        {"updeula", zuv::MakeVector("Text of ", "the agre", "ement")},
        {"updlocinfo", 7},
    };
}

std::vector<zuv::TValue> ValuesOfAllKinds() {
    return {
        zuv::None(),
        zuv::MakeVector(1),
        zuv::Map{{"key", 1}},
        true,
        static_cast<signed char>(1),
        static_cast<short>(1),
        1,
        1L,
        1.0,
        Timestamp(1),
        "text",
        zuv::Blob(17),
        static_cast<unsigned char>(1),
        static_cast<unsigned short>(1),
        1U,
        1UL,
    };
}

zuv::TValue Without(zuv::TValue tree, const std::string& key) {
    EXPECT_EQ(tree.Get<zuv::Map>().erase(key), 1U) << key;
    return tree;
}

zuv::TValue With(zuv::TValue tree, const std::string& key, zuv::TValue value) {
    tree.Get<zuv::Map>()[key] = std::move(value);
    return tree;
}

/// Puts "(#)" in place of the first number in parentheses: the line that an exception comes from.
std::string WithoutLineNumber(std::string text) {
    constexpr std::string_view kDigits = "0123456789";
    for (std::size_t open = text.find('('); open != std::string::npos;
         open = text.find('(', open + 1)) {
        const std::size_t close = text.find_first_not_of(kDigits, open + 1);
        if (close != std::string::npos && close > open + 1 && text[close] == ')') {
            return text.replace(open, close + 1 - open, "(#)");
        }
    }
    return text;
}

std::string Line(const testing::LogRecord& record) {
    return fmt::format("{} {} {}: {}", record.level, record.file, record.function,
                       WithoutLineNumber(record.text));
}

std::string BadKindText(const std::string& operation, zuv::Kind actual, zuv::Kind wanted) {
    return fmt::format(
        "{} failed with exception [Unspecified error : std::exception: the value is of kind {}, "
        "not {}]",
        operation, zuv::KindName(actual), zuv::KindName(wanted));
}

std::string AbsentOptionalLine(const std::string& key) {
    return "4 zam_converter_tree GetTreeNodeValueOptional: GetTreeNodeValue: Not found: " + key;
}

std::string AbsentLine(const std::string& key) {
    return "4 zam_converter_tree GetTreeNodeValue: GetTreeNodeValue: Not found: " + key;
}

std::string NotFoundLine(const std::string& file, const std::string& operation) {
    return fmt::format(
        "4 {0} {1}: {1} failed with exception [Not found : Not found = 0x8000004C. At "
        "zam_converter_tree(#)]",
        file, operation);
}

std::string ParseErrorLine(const std::string& key) {
    return "4 zam_converter_tree GetTreeNodeValue: GetTreeNodeValue: parse error " + key;
}

std::string RejectedLine(const std::string& file, const std::string& operation) {
    return fmt::format(
        "4 {0} {1}: {1} failed with exception [Invalid argument : Invalid argument = 0x80000046. "
        "At zam_converter_tree(#)]",
        file, operation);
}

std::vector<std::string> ConverterTest::TakeLines() {
    std::vector<std::string> lines;
    for (const testing::LogRecord& record : logger_.Records()) {
        lines.push_back(Line(record));
        EXPECT_GT(record.line, 0) << record;
    }
    logger_.Clear();
    return lines;
}

void ConverterTest::ExpectLines(const std::vector<std::string>& lines) {
    EXPECT_THAT(TakeLines(), ::testing::ElementsAreArray(lines));
}

}  // namespace zam_connector::test
