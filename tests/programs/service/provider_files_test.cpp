#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "common/server_data_casts.h"
#include "data/server_data_json.h"
#include "data/subscriptions_json.h"
#include "data/updates_status_json.h"

namespace zam_service {
namespace {

using ::testing::HasSubstr;
using zam_connector::ZamDeviceStatus;
using zam_connector::ZamSubscriptions;
using zam_json::JsonDocument;
using zam_json::JsonError;
using zam_json::JsonValue;

/// What `read` says is wrong with a text; "none" when nothing is.
template <typename Content>
std::string ReadingErrorOf(Content (*read)(const JsonValue& root), const std::string& text) {
    try {
        const JsonDocument document("file.json", text);
        read(document.Root());
        return "none";
    } catch (const JsonError& error) {
        return error.what();
    }
}

SubscriptionsSnapshot Subscriptions(const std::string& text) {
    const JsonDocument document("subscriptions.json", text);
    return ReadSubscriptions(document.Root());
}

std::pair<unsigned long, ZamSubscriptions> Received(SubscriptionsSnapshot snapshot) {
    vd_arena arena{};
    vd_arena_init(&arena, snapshot.arena.data(), static_cast<std::uint32_t>(snapshot.arena.size()));
    arena.used = arena.capacity;
    return zam_connector::common::CastFromVd(snapshot.message, &arena);
}

TEST(Subscriptions, AreReadWithTheirDefaults) {
    const auto [hash, subscriptions] = Received(Subscriptions(
        R"({"events": {"door": {"min_severity": 4294967295, "max_delay_s": 3600}, "": {}}})"));
    EXPECT_EQ(subscriptions.events.size(), 2U);
    EXPECT_EQ(subscriptions.events.at("door").minSeverity, 4294967295U);
    EXPECT_EQ(subscriptions.events.at("door").maxDelay.count(), 3600U);
    EXPECT_EQ(subscriptions.events.at(""), zam_connector::ZamEventSubscription());
    EXPECT_EQ(hash, HashOf(subscriptions));
    EXPECT_EQ(Received({}).first, kAbsentHash);
}

TEST(Subscriptions, HaveTheSameHashInAnyOrder) {
    const std::uint64_t hash =
        Subscriptions(R"({"events": {"a": {"max_delay_s": 1}, "b": {}}})").message.hash;
    EXPECT_EQ(Subscriptions(R"({"events": {"b": {}, "a": {"max_delay_s": 1}}})").message.hash,
              hash);
    EXPECT_NE(Subscriptions(R"({"events": {"a": {"min_severity": 1}, "b": {}}})").message.hash,
              hash);
    EXPECT_NE(Subscriptions(R"({"events": {}})").message.hash, kAbsentHash);
}

TEST(Subscriptions, FitIntoAnAnswerOrAreRefused) {
    // Beside its text, a subscription takes the text's place and two numbers, which stand on a
    // multiple of 4: a text of one byte more would take four.
    const std::size_t largest = kSubscriptionsBytes - 16;
    EXPECT_EQ(ReadingErrorOf(ReadSubscriptions,
                             R"({"events": {")" + std::string(largest, 'x') + R"(": {}}})"),
              "none");
    EXPECT_THAT(ReadingErrorOf(ReadSubscriptions,
                               R"({"events": {")" + std::string(largest + 1, 'x') + R"(": {}}})"),
                HasSubstr("file.json:1:12: at \"/events\": "));
}

TEST(Subscriptions, AreRefusedWithThePlaceOfWhatIsWrong) {
    const std::pair<const char*, const char*> rows[] = {
        {"[]", "file.json:1:1: at \"\": is an array, allowed is an object"},
        {"{}", "the member \"events\" is missing"},
        {R"({"events": []})", "1:12: at \"/events\": is an array, allowed is an object"},
        {R"({"events": {"a": 1}})", "1:18: at \"/events/a\": is 1, allowed is an object"},
        {R"({"events": {"a": {"x": 1}}})", "1:19: at \"/events/a/x\": the key is not known"},
        {R"({"events": {"a": {"min_severity": -1}}})",
         "1:35: at \"/events/a/min_severity\": is -1"},
        {R"({"events": {"a": {"max_delay_s": 4294967296}}})", "at \"/events/a/max_delay_s\""},
        {R"({"events": {"a": {}, "a": {}}})", "\"/events/a\""},
    };
    for (const auto& [text, error] : rows) {
        EXPECT_THAT(ReadingErrorOf(ReadSubscriptions, text), HasSubstr(error)) << text;
    }
}

TEST(ServerDataFile, IsReadInFull) {
    const JsonDocument document("server_data.json", R"({
        "version_major": 65535, "version_minor": 7, "clock_offset_s": -2147483648,
        "device_status": "quarantined", "offers_files": true, "wants_diagnostics": true,
        "requires_client_cert": true, "policy_result": "0x80000045", "settings_result": 1})");
    const ServerData server = ReadServerData(document.Root());
    zam_connector::ZamServerData expected;
    expected.versionMajor = 65535;
    expected.versionMinor = 7;
    expected.clockOffset = std::chrono::duration<std::int32_t>(-2147483647 - 1);
    expected.deviceStatus = ZamDeviceStatus::Quarantined;
    expected.offersFiles = true;
    expected.wantsDiagnostics = true;
    expected.requiresClientCert = true;
    EXPECT_EQ(server.data, expected);
    EXPECT_EQ(server.policyResult, static_cast<int>(0x80000045U));
    EXPECT_EQ(server.settingsResult, 1);
}

TEST(ServerDataFile, HasADefaultForEveryField) {
    const JsonDocument document("server_data.json", "{}");
    const ServerData server = ReadServerData(document.Root());
    EXPECT_EQ(server.data, zam_connector::ZamServerData());
    EXPECT_EQ(server.policyResult, 0);
    EXPECT_EQ(server.settingsResult, 0);
}

TEST(ServerDataFile, IsRefusedWithThePlaceOfWhatIsWrong) {
    const std::pair<const char*, const char*> rows[] = {
        {R"({"version_major": 65536})", "1:19: at \"/version_major\": is 65536"},
        {R"({"version_minor": -1})", "\"/version_minor\""},
        {R"({"clock_offset_s": 2147483648})", "\"/clock_offset_s\""},
        {R"({"device_status": "lost"})", "allowed is one of unmanaged, managed, quarantined"},
        {R"({"device_status": 1})", "allowed is one of unmanaged, managed, quarantined"},
        {R"({"offers_files": 1})", "\"/offers_files\": is 1, allowed is true or false"},
        {R"({"policy_result": "high"})", "\"/policy_result\""},
        {R"({"settings_result": 0.5})", "\"/settings_result\""},
        {R"({"version": 1})", "\"/version\": the key is not known here"},
    };
    for (const auto& [text, error] : rows) {
        EXPECT_THAT(ReadingErrorOf(ReadServerData, text), HasSubstr(error)) << text;
    }
}

TEST(UpdatesStatusFile, IsReadInItsOrder) {
    const JsonDocument document("updates_status.json", R"({
        "revoked": ["00112233445566778899aabbccddeeff", "FFEEDDCCBBAA99887766554433221100"],
        "approved": ["000000000000000000000000000000ff"]})");
    const UpdatesSnapshot snapshot = ReadUpdatesStatus(document.Root());
    EXPECT_EQ(snapshot.lists[0].size(), 1U);
    EXPECT_EQ(snapshot.lists[0][0].back(), std::byte{0xFF});
    EXPECT_EQ(snapshot.lists[0][0].front(), std::byte{0});
    EXPECT_EQ(snapshot.lists[1].size(), 0U);
    EXPECT_EQ(snapshot.lists[2].size(), 2U);
    EXPECT_EQ(snapshot.lists[2][0][1], std::byte{0x11});
    EXPECT_EQ(snapshot.lists[2][1][0], std::byte{0xFF});
    EXPECT_NE(snapshot.hash, kAbsentHash);
}

TEST(UpdatesStatusFile, HasAHashOfWhatStandsWhere) {
    const auto hashOf = [](const std::string& text) {
        const JsonDocument document("updates_status.json", text);
        return ReadUpdatesStatus(document.Root()).hash;
    };
    const std::string a = "\"00112233445566778899aabbccddeeff\"";
    const std::string b = "\"10112233445566778899aabbccddeeff\"";
    const std::uint64_t hash = hashOf("{\"approved\": [" + a + "," + b + "]}");
    EXPECT_EQ(hashOf("{\"declined\": [], \"approved\": [" + a + "," + b + "]}"), hash);
    EXPECT_NE(hashOf("{\"approved\": [" + b + "," + a + "]}"), hash);
    EXPECT_NE(hashOf("{\"approved\": [" + a + "], \"declined\": [" + b + "]}"), hash);
    EXPECT_NE(hashOf("{}"), kAbsentHash);
}

TEST(UpdatesStatusFile, IsRefusedWithThePlaceOfWhatIsWrong) {
    const std::pair<const char*, const char*> rows[] = {
        {R"({"approved": {}})", "1:14: at \"/approved\": is an object"},
        {R"({"approved": [1]})", "\"/approved/0\": is 1, allowed is a text of 32 hexadecimal"},
        {R"({"declined": ["00112233445566778899aabbccddee"]})", "\"/declined/0\""},
        {R"({"declined": ["00112233445566778899aabbccddeeff0"]})", "\"/declined/0\""},
        {R"({"revoked": ["00112233445566778899aabbccddeefg"]})", "\"/revoked/0\""},
        {R"({"revoked": ["+0112233445566778899aabbccddeeff"]})", "\"/revoked/0\""},
        {R"({"postponed": []})", "\"/postponed\": the key is not known here"},
    };
    for (const auto& [text, error] : rows) {
        EXPECT_THAT(ReadingErrorOf(ReadUpdatesStatus, text), HasSubstr(error)) << text;
    }
}

}  // namespace
}  // namespace zam_service
