#include "converter_fixture.h"

// The conversions of single fields, replaced: some of them cannot fail in the library, or only for
// want of memory.

namespace zam_connector::zam_converter {

namespace {

/// What the conversions do in the test that runs.
struct Behaviour {
    std::optional<ZamId> idThatFails;  ///< to be written
    bool timesFail = false;            ///< both ways
    bool hashesFail = false;           ///< to be written
};

Behaviour g_behaviour;

}  // namespace

std::optional<std::vector<unsigned char>> ConvertZamIdTypeToBlob(const ZamId& id) noexcept {
    return id == g_behaviour.idThatFails ? std::nullopt
                                         : std::optional<std::vector<unsigned char>>(17);
}

std::optional<ZamId> ParseZamIdType(const zuv::TValue& /*node*/) noexcept {
    return ZamId{};
}

std::optional<long> ConvertTimeStamp(qor::types::Timestamp time) noexcept {
    return g_behaviour.timesFail ? std::nullopt : std::optional<long>(time.Count());
}

std::optional<qor::types::Timestamp> ParseTimeStamp(long count) noexcept {
    return g_behaviour.timesFail
               ? std::nullopt
               : std::optional<qor::types::Timestamp>(qor::types::Timestamp(count));
}

std::optional<std::string> ConvertZamHashToHex(unsigned long /*hash*/) noexcept {
    return g_behaviour.hashesFail ? std::nullopt : std::optional<std::string>("hash");
}

std::optional<unsigned long> ZamParamsListSize(const zuv::TValue& /*node*/) noexcept {
    return std::nullopt;
}

}  // namespace zam_connector::zam_converter

namespace zam_connector::test {
namespace {

using namespace zam_converter;

constexpr char kNoValue[] =
    " failed with exception [Unspecified error : std::exception: bad optional access]";

class FailingConversion : public ConverterTest {
protected:
    ~FailingConversion() override { g_behaviour = {}; }
};

TEST_F(FailingConversion, OfAnUpdatesIdentifier) {
    EXPECT_TRUE(ConvertUpdateInfo(SampleUpdate()));
    g_behaviour.idThatFails = SampleUpdate().id;
    EXPECT_EQ(ConvertUpdateInfo(SampleUpdate()), std::nullopt);
    ExpectLines(
        {"4 zam_converter_update_info ConvertUpdateInfo: ConvertUpdateInfo: Could not "
         "convert SeamlessStaticUpdateId to BLOB"});
    EXPECT_EQ(ConvertUpdateIdentityInfo(SampleUpdate()), std::nullopt);
    ExpectLines(
        {"4 zam_converter_update_info ConvertUpdateIdentityInfo: "
         "ConvertUpdateIdentityInfo: Could not convert ZamId to BLOB"});
}

TEST_F(FailingConversion, OfAnUpdatesAgreementIdentifier) {
    g_behaviour.idThatFails = SampleUpdate().eulaId;
    EXPECT_EQ(ConvertUpdateInfo(SampleUpdate()), std::nullopt);
    ExpectLines(
        {"4 zam_converter_update_info ConvertUpdateInfo: ConvertUpdateInfo: Could not "
         "convert EulaId to BLOB"});
    UpdateInfo without = SampleUpdate();
    without.eulaId.reset();
    EXPECT_TRUE(ConvertUpdateInfo(without));
    EXPECT_TRUE(ConvertUpdateIdentityInfo(SampleUpdate()));
}

TEST_F(FailingConversion, OfBothIdentifiersIsLoggedForTheFirst) {
    UpdateInfo info = SampleUpdate();
    info.eulaId = info.id;
    g_behaviour.idThatFails = info.id;
    EXPECT_EQ(ConvertUpdateInfo(info), std::nullopt);
    ExpectLines(
        {"4 zam_converter_update_info ConvertUpdateInfo: ConvertUpdateInfo: Could not "
         "convert SeamlessStaticUpdateId to BLOB"});
}

TEST_F(FailingConversion, OfAStatussIdentifier) {
    EXPECT_TRUE(ConvertUpdateStatusInfo(SampleStatus()));
    g_behaviour.idThatFails = SampleStatus().id;
    EXPECT_EQ(ConvertUpdateStatusInfo(SampleStatus()), std::nullopt);
    ExpectLines(
        {"4 zam_converter_update_status_info ConvertUpdateStatusInfo: "
         "ConvertUpdateStatusInfo: Canon't convert SeamlessDynamicUpdateId to BLOB"});
    EXPECT_EQ(ConvertUpdateStatusIdentityInfo(SampleStatus()), std::nullopt);
    ExpectLines(
        {"4 zam_converter_update_status_info ConvertUpdateStatusIdentityInfo: "
         "ConvertUpdateStatusIdentityInfo: Could not convert SeamlessDynamicUpdateId to BLOB"});
}

TEST_F(FailingConversion, OfAnElementOfAllUpdates) {
    const AppUpdates updates{{SampleUpdate()}, {SampleStatus()}};
    EXPECT_TRUE(ConvertAppUpdates(updates));
    constexpr char kFailure[] =
        "4 zam_converter_app_updates ConvertAppUpdates: ConvertAppUpdates: Convert updates failed";
    g_behaviour.idThatFails = SampleUpdate().id;
    EXPECT_EQ(ConvertAppUpdates(updates), std::nullopt);
    ExpectLines(
        {"4 zam_converter_update_info ConvertUpdateInfo: ConvertUpdateInfo: Could not "
         "convert SeamlessStaticUpdateId to BLOB",
         kFailure});
    g_behaviour.idThatFails = SampleStatus().id;
    EXPECT_EQ(ConvertAppUpdates(updates), std::nullopt);
    ExpectLines(
        {"4 zam_converter_update_status_info ConvertUpdateStatusInfo: "
         "ConvertUpdateStatusInfo: Canon't convert SeamlessDynamicUpdateId to BLOB",
         kFailure});
}

TEST_F(FailingConversion, OfARecordOfTheIdentityOfAllUpdates) {
    const auto convert = [] {
        return ConvertAppUpdatesIdentityInfo({{1, SampleUpdate()}}, {{2, SampleStatus()}});
    };
    EXPECT_TRUE(convert());
    g_behaviour.idThatFails = SampleUpdate().id;
    EXPECT_EQ(convert(), std::nullopt);
    ExpectLines(
        {"4 zam_converter_update_info ConvertUpdateIdentityInfo: "
         "ConvertUpdateIdentityInfo: Could not convert ZamId to BLOB",
         "4 zam_converter_app_updates ConvertAppUpdatesIdentityInfo: Could not convert "
         "updateInfo to ZAMParam"});
    g_behaviour.idThatFails = SampleStatus().id;
    EXPECT_EQ(convert(), std::nullopt);
    ExpectLines(
        {"4 zam_converter_update_status_info ConvertUpdateStatusIdentityInfo: "
         "ConvertUpdateStatusIdentityInfo: Could not convert SeamlessDynamicUpdateId to BLOB",
         "4 zam_converter_app_updates ConvertAppUpdatesIdentityInfo: Could not convert "
         "updateStatusInfo to ZAMParam"});
}

TEST_F(FailingConversion, OfANumberOfTheIdentityOfAllUpdates) {
    g_behaviour.hashesFail = true;
    EXPECT_EQ(ConvertAppUpdatesIdentityInfo({{1, SampleUpdate()}}, {}), std::nullopt);
    const std::string line = std::string(
                                 "4 zam_converter_app_updates ConvertAppUpdatesIdentityInfo: "
                                 "ConvertUpdatesIdentityInfo") +
                             kNoValue;
    ExpectLines({line});
    EXPECT_EQ(ConvertAppUpdatesIdentityInfo({}, {{1, SampleStatus()}}), std::nullopt);
    ExpectLines({line});
}

TEST_F(FailingConversion, OfAnAgreementsIdentifier) {
    EXPECT_TRUE(ConvertEulaData(SampleEula(), 8));
    g_behaviour.idThatFails = SampleEula().id;
    // Later fields that fail too are not reached.
    g_behaviour.timesFail = true;
    EXPECT_EQ(ConvertEulaData(SampleEula(), 0), std::nullopt);
    ExpectLines(
        {"4 zam_converter_eula ConvertEulaData: ConvertEulaData: Could not convert eula id"});
    EXPECT_EQ(ConvertEulaIdentityInfo(SampleEula()), std::nullopt);
    ExpectLines(
        {"4 zam_converter_eula ConvertEulaIdentityInfo: ConvertEulaIdentityInfo: Could "
         "not convert eula Id to BLOB"});
}

TEST_F(FailingConversion, OfAnAgreementsTime) {
    EXPECT_TRUE(ConvertEulaIdentityInfo(SampleEula()));
    g_behaviour.timesFail = true;
    EXPECT_EQ(ConvertEulaData(SampleEula(), 0), std::nullopt);
    ExpectLines(
        {"4 zam_converter_eula ConvertEulaData: ConvertEulaData: Could not convert timestamp"});
    EXPECT_EQ(ConvertEulaIdentityInfo(SampleEula()), std::nullopt);
    ExpectLines({std::string("4 zam_converter_eula ConvertEulaIdentityInfo: "
                             "ConvertEulaIdentityInfo") +
                 kNoValue});
    EXPECT_EQ(ParseEula(SampleEulaTree()), std::nullopt);
    ExpectLines({std::string("4 zam_converter_eula ParseEula: ParseEula") + kNoValue});
}

TEST_F(FailingConversion, OfAListsSizeCostsNothingButTheReservedRoom) {
    EXPECT_EQ(ParseEulas(zuv::Vector(3, SampleEulaTree())).value().size(), 3U);
}

}  // namespace
}  // namespace zam_connector::test
