#include "common/arena.h"
#include "level_off.h"
#include "support/literal_list.h"

namespace zam_connector {
namespace {

using test::ExpectSameWithTheLevelOff;
using test::HolderRig;

using HolderAct = int (*)(HolderRig&, bool&);

int SetInfo(HolderRig& rig, bool& /*isWritten*/) {
    return rig.proxy.SetAppInfo({});
}

int SetTooLargeInfo(HolderRig& rig, bool& /*isWritten*/) {
    AppInfo info;
    info.productName = std::string(21'217, 'n');
    return rig.proxy.SetAppInfo(info);
}

int SetDynamicInfo(HolderRig& rig, bool& /*isWritten*/) {
    return rig.proxy.SetAppInfoDynamic({});
}

int SetEulas(HolderRig& rig, bool& isWritten) {
    unsigned long hash = 5;
    const int code = rig.proxy.SetAppEulas(std::vector<AppEula>(5), hash);
    isWritten = hash != 5;
    return code;
}

int SetUpdates(HolderRig& rig, bool& isWritten) {
    AppUpdates updates;
    updates.updates.resize(2);
    unsigned long hash = 5;
    const int code = rig.proxy.SetAppUpdates(updates, hash);
    isWritten = hash != 5;
    return code;
}

int SetTree(HolderRig& rig, bool& isWritten) {
    unsigned long hash = 5;
    const int code = rig.proxy.SetSettings({zuv::Map{{"a", 1}}}, hash);
    isWritten = hash != 5;
    return code;
}

int SetTreeThatCannotBeFlattened(HolderRig& rig, bool& isWritten) {
    unsigned long hash = 5;
    const int code = rig.proxy.SetSettings({zam_test::ValuelessValue()}, hash);
    isWritten = hash != 5;
    return code;
}

int SendToAnArenaThatIsTooSmall(HolderRig& rig, bool& /*isWritten*/) {
    test::List list = test::Flattened(1);
    common::HeapArena arena(1);
    return rig.proxy.SendRawZamParams(test::kChannel, arena.Get(), list.begin(), list.end());
}

/// A method with the operations that it calls.
struct Method {
    const char* name;
    HolderAct act;
    std::vector<unsigned> steps;
};

const Method kSingleCalls[] = {
    {"SetAppInfo", &SetInfo, {test::kSetAppInfo}},
    {"SetAppInfoDynamic", &SetDynamicInfo, {test::kSetAppInfoDynamic}},
};

const Method kUploads[] = {
    {"SetAppEulas",
     &SetEulas,
     {test::kOpenAppEulasChannel, test::kSendData, test::kCloseHolderChannel}},
    {"SetAppUpdates",
     &SetUpdates,
     {test::kOpenAppUpdatesChannel, test::kSendData, test::kCloseHolderChannel}},
    {"SetSettings",
     &SetTree,
     {test::kOpenSetSettingsChannel, test::kSendData, test::kCloseHolderChannel}},
};

/// Has every step fail once.
void ExpectFailingUploads(const Method& method, test::Fault fault, int code) {
    for (const unsigned step : method.steps) {
        SCOPED_TRACE(::testing::Message() << method.name << ", operation " << step);
        ExpectSameWithTheLevelOff<HolderRig>(
            {.code = code}, [&](HolderRig& rig) { rig.Fail(step, fault); }, method.act);
    }
}

void ExpectServicesFailure(const Method& method) {
    SCOPED_TRACE(method.name);
    ExpectSameWithTheLevelOff<HolderRig>(
        {.code = test::kServiceFailure, .records = 0},
        [](HolderRig& rig) { rig.result = test::kServiceFailure; }, method.act);
}

TEST(HolderWithTheLevelOff, FailsAllTheSameWithTheTransport) {
    for (const Method& method : kSingleCalls) {
        ExpectFailingUploads(method, {.transport = 3}, test::kUnspecified);
    }
    for (const Method& method : kUploads) {
        ExpectFailingUploads(method, {.transport = 3}, test::kUnspecified);
    }
}

TEST(HolderWithTheLevelOff, FailsAllTheSameWithTheSession) {
    for (const Method& method : kUploads) {
        for (const auto& row : test::kSessionFailures) {
            ExpectFailingUploads(method, {.session = row.status}, row.code);
        }
    }
}

TEST(HolderWithTheLevelOff, HandsOnTheServicesFailureAllTheSame) {
    for (const Method& method : kSingleCalls) {
        ExpectServicesFailure(method);
    }
    for (const Method& method : kUploads) {
        ExpectServicesFailure(method);
    }
}

TEST(HolderWithTheLevelOff, FailsAllTheSameForWhatCannotBeConverted) {
    const auto prepare = [](HolderRig& /*rig*/) {};
    ExpectSameWithTheLevelOff<HolderRig>({}, prepare, &SetTooLargeInfo);
    ExpectSameWithTheLevelOff<HolderRig>({}, prepare, &SendToAnArenaThatIsTooSmall);
    ExpectSameWithTheLevelOff<HolderRig>({.code = test::kInvalidArgument}, prepare,
                                         &SetTreeThatCannotBeFlattened);
}

}  // namespace
}  // namespace zam_connector
