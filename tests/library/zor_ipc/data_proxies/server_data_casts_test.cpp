#include "common/server_data_casts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

#include "common/arena.h"
#include "support/conversions.h"

namespace zam_connector::common {
namespace {

using zam_test::Bytes;
using zam_test::BytesOf;
using zam_test::RecordOf;
using zam_test::TextOf;
using Subscriptions = std::pair<unsigned long, ZamSubscriptions>;
using IdlSubscriptions = qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash;
using IdlServerData = qx_zam_connector_ZamTypes_ZamServerData;
using Seconds = std::chrono::duration<std::uint32_t>;

Subscriptions OneSubscription() {
    Subscriptions subscriptions;
    subscriptions.first = 0xF1F2F3F4F5F6F7F8;
    subscriptions.second.events["ab"] = {0x01020304, Seconds(0xFDFEFF00)};
    return subscriptions;
}

const Bytes& WireOfOneSubscription() {
    static const Bytes wire = [] {
        Bytes bytes{
            0xF8, 0xF7, 0xF6, 0xF5, 0xF4, 0xF3, 0xF2, 0xF1,  // hash
            4,    0,    0,    0,    8,    0,    0,    0,     // eventTypes
            12,   0,    0,    0,    4,    0,    0,    0,     // minSeverities
            16,   0,    0,    0,    4,    0,    0,    0,     // maxDelaysS
        };
        bytes.resize(56);
        return bytes;
    }();
    return wire;
}

const Bytes& ArenaOfOneSubscription() {
    static const Bytes arena = {
        'a',  'b',  0,    0,                             // the type, and the gap behind it
        0,    0,    0,    0,    2,    0,    0,    0,     // its stretch
        0x04, 0x03, 0x02, 0x01, 0x00, 0xFF, 0xFE, 0xFD,  // severity, delay
    };
    return arena;
}

/// An arena that holds these bytes.
class FilledArena {
public:
    explicit FilledArena(Bytes bytes) : bytes_(std::move(bytes)) {
        vd_arena_init(&arena_, bytes_.data(), static_cast<std::uint32_t>(bytes_.size()));
        arena_.used = arena_.capacity;
    }

    const vd_arena* Get() const { return &arena_; }

private:
    Bytes bytes_;
    vd_arena arena_{};
};

TEST(SubscriptionsCast, WritesTheseBytes) {
    HeapArena arena(20);
    EXPECT_EQ(BytesOf(CastToVd(OneSubscription(), arena.Get())), WireOfOneSubscription());
    EXPECT_EQ(Bytes(arena.Get()->base, arena.Get()->base + arena.Get()->used),
              ArenaOfOneSubscription());
}

TEST(SubscriptionsCast, ReadsTheseBytes) {
    const FilledArena arena(ArenaOfOneSubscription());
    EXPECT_EQ(CastFromVd(RecordOf<IdlSubscriptions>(WireOfOneSubscription()), arena.Get()),
              OneSubscription());
}

TEST(SubscriptionsCast, RoundTripsManyAndNone) {
    Subscriptions subscriptions;
    HeapArena arena(0x11000);
    EXPECT_EQ(BytesOf(CastToVd(subscriptions, arena.Get())), Bytes(56));
    EXPECT_EQ(arena.Get()->used, 0U);
    EXPECT_EQ(CastFromVd(IdlSubscriptions{}, nullptr), subscriptions);
    subscriptions.first = 1;
    subscriptions.second.events[""] = {UINT32_MAX, Seconds(UINT32_MAX)};
    for (std::uint32_t number = 0; number < 1000; ++number) {
        subscriptions.second.events["type" + std::to_string(number)] = {number, Seconds(~number)};
    }
    EXPECT_EQ(CastFromVd(CastToVd(subscriptions, arena.Get()), arena.Get()), subscriptions);
}

TEST(SubscriptionsCast, TakesWhatTheArenaHolds) {
    for (const std::uint32_t capacity : {1U, 11U, 15U, 19U}) {
        HeapArena arena(capacity);
        EXPECT_THROW(CastToVd(OneSubscription(), arena.Get()), std::length_error) << capacity;
    }
    EXPECT_THROW(CastToVd(OneSubscription(), nullptr), std::invalid_argument);
}

TEST(SubscriptionsCast, RefusesStretchesOutsideTheBytesInUse) {
    const FilledArena arena(ArenaOfOneSubscription());
    struct {
        vd_bytes IdlSubscriptions::*field;
        const char* name;
    } const fields[] = {
        {&IdlSubscriptions::eventTypes, "eventTypes"},
        {&IdlSubscriptions::minSeverities, "minSeverities"},
        {&IdlSubscriptions::maxDelaysS, "maxDelays"},
    };
    for (const auto& field : fields) {
        for (const vd_bytes hostile :
             {vd_bytes{16, 8}, vd_bytes{21, 0}, vd_bytes{0, 24}, vd_bytes{0xFFFFFFF8, 8},
              vd_bytes{8, 0xFFFFFFF8}, vd_bytes{0xFFFFFFFF, 0xFFFFFFFF}}) {
            auto wire = RecordOf<IdlSubscriptions>(WireOfOneSubscription());
            wire.*field.field = hostile;
            EXPECT_EQ(TextOf<std::out_of_range>([&] { CastFromVd(wire, arena.Get()); }),
                      std::string(field.name) + ": offset " + std::to_string(hostile.offset) +
                          " and length " + std::to_string(hostile.length) +
                          " exceed the 20 bytes in use of the arena");
        }
        auto wire = RecordOf<IdlSubscriptions>(WireOfOneSubscription());
        wire.*field.field = {12, 3};
        EXPECT_THROW(CastFromVd(wire, arena.Get()), std::invalid_argument);
    }
    const auto wire = RecordOf<IdlSubscriptions>(WireOfOneSubscription());
    EXPECT_THROW(CastFromVd(wire, nullptr), std::out_of_range);
}

TEST(SubscriptionsCast, RefusesATypeThatLiesOutside) {
    Bytes bytes = ArenaOfOneSubscription();
    bytes[8] = 21;
    const FilledArena arena(bytes);
    EXPECT_EQ(TextOf<std::out_of_range>([&] {
                  CastFromVd(RecordOf<IdlSubscriptions>(WireOfOneSubscription()), arena.Get());
              }),
              "eventTypes: offset 0 and length 21 exceed the 20 bytes in use of the arena");
}

TEST(SubscriptionsCast, RefusesSequencesOfDifferentLengths) {
    const FilledArena arena(ArenaOfOneSubscription());
    auto wire = RecordOf<IdlSubscriptions>(WireOfOneSubscription());
    wire.minSeverities = {12, 8};
    EXPECT_EQ(TextOf<std::invalid_argument>([&] { CastFromVd(wire, arena.Get()); }),
              "minSeverities: 2 elements, the event types have 1");
    wire.minSeverities = {12, 4};
    wire.maxDelaysS = {0, 0};
    EXPECT_EQ(TextOf<std::invalid_argument>([&] { CastFromVd(wire, arena.Get()); }),
              "maxDelays: 0 elements, the event types have 1");
    wire.maxDelaysS = {16, 4};
    wire.eventTypes = {0, 0};
    EXPECT_EQ(TextOf<std::invalid_argument>([&] { CastFromVd(wire, arena.Get()); }),
              "minSeverities: 1 elements, the event types have 0");
}

TEST(SubscriptionsCast, RefusesATypeThatComesTwice) {
    HeapArena arena(64);
    ArenaWriter writer(arena.Get());
    IdlSubscriptions wire{};
    wire.eventTypes = writer.PutTexts({"login", "virus", "login"}, "eventTypes");
    wire.minSeverities = writer.PutSequence(std::vector<std::uint32_t>(3), "minSeverities");
    wire.maxDelaysS = wire.minSeverities;
    EXPECT_EQ(TextOf<std::invalid_argument>([&] { CastFromVd(wire, arena.Get()); }),
              "eventTypes: \"login\" comes twice");
}

ZamServerData DistinctServerData() {
    ZamServerData data;
    data.versionMajor = 0x0102;
    data.versionMinor = 0xFEFF;
    data.clockOffset = std::chrono::duration<std::int32_t>(-2);
    data.deviceStatus = ZamDeviceStatus::Managed;
    data.wantsDiagnostics = true;
    return data;
}

TEST(ServerDataCast, HasTheseBytesBothWays) {
    const Bytes wire{0x02, 0x01, 0xFF, 0xFE, 0xFE, 0xFF, 0xFF, 0xFF, 1, 2, 0, 0};
    EXPECT_EQ(BytesOf(CastToVd(DistinctServerData())), wire);
    EXPECT_EQ(CastFromVd(RecordOf<IdlServerData>(wire)), DistinctServerData());
    EXPECT_EQ(BytesOf(CastToVd(ZamServerData())), Bytes(12));
    EXPECT_EQ(CastFromVd(IdlServerData{}), ZamServerData());
}

TEST(ServerDataCast, RoundTripsEveryFieldByItself) {
    const std::function<void(ZamServerData&)> changes[] = {
        [](ZamServerData& data) { data.versionMajor = UINT16_MAX; },
        [](ZamServerData& data) { data.versionMinor = UINT16_MAX; },
        [](ZamServerData& data) { data.clockOffset = data.clockOffset.min(); },
        [](ZamServerData& data) { data.clockOffset = data.clockOffset.max(); },
        [](ZamServerData& data) { data.deviceStatus = ZamDeviceStatus::Quarantined; },
        [](ZamServerData& data) { data.offersFiles = true; },
        [](ZamServerData& data) { data.wantsDiagnostics = true; },
        [](ZamServerData& data) { data.requiresClientCert = true; },
    };
    for (const auto& change : changes) {
        ZamServerData data;
        change(data);
        EXPECT_TRUE(data != ZamServerData());
        EXPECT_EQ(CastFromVd(CastToVd(data)), data);
    }
}

TEST(ServerDataCast, HasEachFlagInItsBitAndIgnoresTheOthers) {
    ZamServerData data;
    data.offersFiles = true;
    EXPECT_EQ(CastToVd(data).flags, 1);
    data = {};
    data.requiresClientCert = true;
    EXPECT_EQ(CastToVd(data).flags, 4);
    IdlServerData wire{};
    wire.flags = 0xF8;
    wire.reserved = 0xFFFF;
    EXPECT_EQ(CastFromVd(wire), ZamServerData());
}

TEST(ServerDataCast, SendsNoStatusThatItWouldRefuse) {
    ZamServerData data;
    data.deviceStatus = static_cast<ZamDeviceStatus>(3);
    EXPECT_THROW(CastToVd(data), std::out_of_range);
}

TEST(ServerDataCast, KnowsThreeDeviceStatuses) {
    IdlServerData wire{};
    for (unsigned status = 0; status <= 0xFF; ++status) {
        wire.deviceStatus = static_cast<std::uint8_t>(status);
        if (status < 3) {
            EXPECT_EQ(CastFromVd(wire).deviceStatus, static_cast<ZamDeviceStatus>(status));
        } else {
            EXPECT_EQ(TextOf<std::out_of_range>([&] { CastFromVd(wire); }),
                      "deviceStatus: " + std::to_string(status) + " is unknown");
        }
    }
}

ZamId IdOf(unsigned char byte) {
    ZamId id{};
    id.fill(static_cast<std::byte>(byte));
    return id;
}

TEST(IdentifiersCast, PutsThemBehindOneAnother) {
    HeapArena arena(160);
    vd_arena_alloc(arena.Get(), 1, 1);
    const auto wire = CastToVd(std::vector{IdOf(1), IdOf(2)}, arena.Get());
    EXPECT_EQ(wire.identifiers.offset, 4U);
    EXPECT_EQ(wire.identifiers.length, 32U);
    Bytes expected(36);
    std::memset(expected.data() + 4, 1, 16);
    std::memset(expected.data() + 20, 2, 16);
    EXPECT_EQ(Bytes(arena.Get()->base, arena.Get()->base + arena.Get()->used), expected);
    EXPECT_EQ(CastFromVd(wire, arena.Get()), (std::vector{IdOf(1), IdOf(2)}));
}

TEST(IdentifiersCast, TakesTenIntoTheArenaOfAPiece) {
    HeapArena arena(160);
    const std::vector<ZamId> ten(10, IdOf(7));
    EXPECT_EQ(CastFromVd(CastToVd(ten, arena.Get()), arena.Get()), ten);
    HeapArena other(160);
    EXPECT_EQ(TextOf<std::length_error>([&] { CastToVd(std::vector<ZamId>(11), other.Get()); }),
              "identifiers: 176 bytes do not fit, 160 of the arena's 160 bytes are free");
    EXPECT_EQ(CastToVd(std::vector<ZamId>(), other.Get()).identifiers.length, 0U);
    EXPECT_TRUE(CastFromVd({{0, 0}}, nullptr).empty());
    EXPECT_THROW(CastToVd(std::vector<ZamId>(), nullptr), std::invalid_argument);
}

TEST(IdentifiersCast, RefusesHostileStretches) {
    const FilledArena arena(Bytes(48));
    for (const std::uint32_t odd : {1U, 8U, 15U, 17U, 31U, 33U, 47U}) {
        EXPECT_THROW(CastFromVd({{0, odd}}, arena.Get()), std::invalid_argument) << odd;
    }
    for (const vd_bytes hostile : {vd_bytes{0, 64}, vd_bytes{33, 16}, vd_bytes{49, 0},
                                   vd_bytes{0xFFFFFFF0, 16}, vd_bytes{16, 0xFFFFFFF0}}) {
        EXPECT_THROW(CastFromVd({hostile}, arena.Get()), std::out_of_range) << hostile.offset;
        EXPECT_THROW(CastFromVd({hostile}, nullptr), std::out_of_range) << hostile.offset;
    }
    EXPECT_EQ(CastFromVd({{32, 16}}, arena.Get()).size(), 1U);
}

}  // namespace
}  // namespace zam_connector::common
