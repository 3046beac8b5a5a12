#include "zam_conn_settings_holder_proxy.h"

#include "library/zor_ipc/call_frame/proxy_fixture.h"

namespace zam_connector {
namespace {

using test::kUnspecified;
using testing::AnswerWith;
using testing::Bytes;

using GetResponse = qx_zam_connector_ConnSettingsHolder_Get_rsp;

ZamConnectorSettings DistinctSettings() {
    ZamConnectorSettings settings;
    settings.syncPeriod = ZamSeconds(0x01020304);
    settings.heartbeatPeriod = ZamSeconds(0x05060708);
    settings.reconnectDelayMin = ZamSeconds(0x090A0B0C);
    settings.reconnectDelayMax = ZamSeconds(0xFDFEFF00);
    settings.uploadLimitBytesPerSecond = 0x1112131415161718;
    settings.downloadLimitBytesPerSecond = 0x2122232425262728;
    settings.maxFileSizeBytes = 0xF1F2F3F4F5F6F7F8;
    settings.eventQueueLimit = 0x31323334;
    settings.compressTraffic = false;
    settings.allowMeteredNetwork = true;
    settings.sendDiagnostics = true;
    return settings;
}

const Bytes& WireOfDistinctSettings() {
    static const Bytes wire = {
        0x04, 0x03, 0x02, 0x01,                          // syncPeriodS
        0x08, 0x07, 0x06, 0x05,                          // heartbeatPeriodS
        0x0C, 0x0B, 0x0A, 0x09,                          // reconnectDelayMinS
        0x00, 0xFF, 0xFE, 0xFD,                          // reconnectDelayMaxS
        0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11,  // uploadLimitBytesPerSecond
        0x28, 0x27, 0x26, 0x25, 0x24, 0x23, 0x22, 0x21,  // downloadLimitBytesPerSecond
        0xF8, 0xF7, 0xF6, 0xF5, 0xF4, 0xF3, 0xF2, 0xF1,  // maxFileSizeBytes
        0x34, 0x33, 0x32, 0x31,                          // eventQueueLimit
        0x06, 0x00, 0x00, 0x00,                          // flags
    };
    return wire;
}

class ZamConnSettingsHolderProxy : public test::ProxyTest {
protected:
    /// Answers `Get` with the distinct settings and a code, behind which four bytes are padding.
    void AnswerGet(int code, int status = 0) {
        Bytes response = WireOfDistinctSettings();
        const auto bits = static_cast<std::uint32_t>(code);
        for (unsigned shift = 0; shift < 32; shift += 8) {
            response.push_back(static_cast<unsigned char>(bits >> shift));
        }
        transport_.Enqueue({status, response, {}});
    }
};

TEST_F(ZamConnSettingsHolderProxy, SetSendsAllSettings) {
    transport_.SetDefault({});
    EXPECT_EQ(settingsHolder_.Set(DistinctSettings()), 0);
    const auto call = OnlyCall();
    EXPECT_EQ(call.request, WireOfDistinctSettings());
    EXPECT_FALSE(call.hasRequestArena);
    EXPECT_FALSE(call.hasResponseArena);
}

TEST_F(ZamConnSettingsHolderProxy, SetSendsEachFlagInItsBit) {
    transport_.SetDefault({});
    struct {
        bool ZamConnectorSettings::*flag;
        unsigned char bit;
    } const rows[] = {
        {&ZamConnectorSettings::compressTraffic, 1},
        {&ZamConnectorSettings::allowMeteredNetwork, 2},
        {&ZamConnectorSettings::sendDiagnostics, 4},
    };
    std::size_t index = 0;
    for (const auto& row : rows) {
        ZamConnectorSettings settings;
        settings.compressTraffic = false;
        settings.*row.flag = true;
        settingsHolder_.Set(settings);
        EXPECT_EQ(transport_.Calls()[index++].request[44], row.bit);
    }
}

TEST_F(ZamConnSettingsHolderProxy, GetStoresAllSettings) {
    AnswerGet(0);
    ZamConnectorSettings settings;
    EXPECT_EQ(settingsHolder_.Get(settings), 0);
    EXPECT_EQ(settings, DistinctSettings());
    EXPECT_EQ(OnlyCall().request, Bytes());
}

TEST_F(ZamConnSettingsHolderProxy, GetStoresTheSettingsBeforeItReturnsAnyCode) {
    for (const int code : test::kResultCodes) {
        AnswerGet(code);
        ZamConnectorSettings settings;
        EXPECT_EQ(settingsHolder_.Get(settings), code);
        EXPECT_EQ(settings, DistinctSettings()) << code;
    }
    ExpectNoRecord();
}

TEST_F(ZamConnSettingsHolderProxy, GetLeavesTheSettingsWhenTheTransportFails) {
    for (const int status : test::kTransportStatuses) {
        AnswerGet(0, status);
        ZamConnectorSettings settings;
        settings.eventQueueLimit = 77;
        const ZamConnectorSettings before = settings;
        EXPECT_EQ(settingsHolder_.Get(settings), kUnspecified);
        EXPECT_EQ(settings, before) << status;
    }
}

TEST_F(ZamConnSettingsHolderProxy, GetTakesAZeroFilledAnswer) {
    transport_.Enqueue({});
    ZamConnectorSettings settings;
    EXPECT_EQ(settingsHolder_.Get(settings), 0);
    EXPECT_EQ(settings.syncPeriod.count(), 0U);
    EXPECT_EQ(settings.eventQueueLimit, 0U);
    EXPECT_FALSE(settings.compressTraffic);
}

TEST_F(ZamConnSettingsHolderProxy, KeepsItsOwnLabelInItsTexts) {
    transport_.SetDefault(testing::FailWith(-3));
    ZamConnectorSettings settings;
    settingsHolder_.Set(settings);
    ExpectFailureRecord("zam_conn_settings_holder_proxy", "Set",
                        "Zam_conn_settings_holder proxy: ipc call Set terminated with a error -3");
    settingsHolder_.Get(settings);
    ExpectFailureRecord("zam_conn_settings_holder_proxy", "Get",
                        "Zam_conn_settings_holder proxy: ipc call Get terminated with a error -3");
}

}  // namespace
}  // namespace zam_connector
