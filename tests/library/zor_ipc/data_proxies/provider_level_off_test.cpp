#include "level_off.h"

namespace zam_connector {
namespace {

using test::ExpectSameWithTheLevelOff;
using test::Failing;
using test::MakeId;
using test::ProviderRig;

using Provider = proxy::ZamDataProviderProxy;
using ProviderAct = int (*)(ProviderRig&, bool&);

template <int (Provider::*kGet)(unsigned long&)>
int Hash(ProviderRig& rig, bool& isWritten) {
    unsigned long hash = 5;
    const int code = (rig.proxy.*kGet)(hash);
    isWritten = hash != 5;
    return code;
}

int FetchSubscriptions(ProviderRig& rig, bool& isWritten) {
    std::pair<unsigned long, ZamSubscriptions> subscriptions{5, {}};
    subscriptions.second.events["old"] = {};
    const auto before = subscriptions;
    const int code = rig.proxy.GetSubscriptions(subscriptions);
    isWritten = subscriptions != before;
    return code;
}

int ServerData(ProviderRig& rig, bool& isWritten) {
    ZamServerData data;
    data.versionMajor = 9;
    const ZamServerData before = data;
    const int code = rig.proxy.GetZamServerData(data);
    isWritten = data != before;
    return code;
}

int ReserveCert(ProviderRig& rig, bool& isWritten) {
    std::string cert = "old";
    const int code = rig.proxy.GetZamReserveCert(cert);
    isWritten = cert != "old";
    return code;
}

int PolicyTree(ProviderRig& rig, bool& isWritten) {
    std::pair<unsigned long, ZamPolicy> policy{5, {zuv::TValue("old")}};
    const int code = rig.proxy.GetPolicy(policy);
    isWritten = policy.first != 5 && policy.second.tree != zuv::TValue("old");
    EXPECT_EQ(isWritten, policy.first != 5 || policy.second.tree != zuv::TValue("old"));
    return code;
}

int SettingsTree(ProviderRig& rig, bool& isWritten) {
    std::pair<unsigned long, ZamProductSettings> settings{5, {zuv::TValue("old")}};
    const int code = rig.proxy.GetProductSettings(settings);
    isWritten = settings.first != 5 && settings.second.tree != zuv::TValue("old");
    EXPECT_EQ(isWritten, settings.first != 5 || settings.second.tree != zuv::TValue("old"));
    return code;
}

int UpdatesStatus(ProviderRig& rig, bool& isWritten) {
    const std::pair<unsigned long, ZamUpdatesStatus> before{5, {{MakeId(9)}, {}, {MakeId(9)}}};
    auto status = before;
    const int code = rig.proxy.GetZamUpdatesStatus(status);
    isWritten = status != before;
    return code;
}

/// An answer of zeros but for its code.
template <typename Response>
testing::ScriptedAnswer AnswerOf(int code) {
    Response response{};
    response.resultCode = code;
    return testing::AnswerWith(response);
}

/// A method of a single call.
struct Single {
    const char* name;
    ProviderAct act;
    testing::ScriptedAnswer (*answer)(int code);
    bool isWrittenBesideAFailure;
};

constexpr Single kSingleFetches[] = {
    {"GetPolicyHash", &Hash<&Provider::GetPolicyHash>, &AnswerOf<qx::HashResponse>, true},
    {"GetSettingsHash", &Hash<&Provider::GetSettingsHash>, &AnswerOf<qx::HashResponse>, true},
    {"GetSubscriptionHash", &Hash<&Provider::GetSubscriptionHash>, &AnswerOf<qx::HashResponse>,
     true},
    {"GetSyncedSettingsHash", &Hash<&Provider::GetSyncedSettingsHash>, &AnswerOf<qx::HashResponse>,
     true},
    {"GetZamUpdatesStatusHash", &Hash<&Provider::GetZamUpdatesStatusHash>,
     &AnswerOf<qx::HashResponse>, false},
    {"GetSubscriptions", &FetchSubscriptions,
     &AnswerOf<qx_zam_connector_ZamDataProvider_GetSubscriptions_rsp>, true},
    {"GetZamServerData", &ServerData,
     &AnswerOf<qx_zam_connector_ZamDataProvider_GetZamServerData_rsp>, true},
    {"GetZamReserveCert", &ReserveCert,
     &AnswerOf<qx_zam_connector_ZamDataProvider_GetZamReserveCert_rsp>, false},
};

/// The failure of a call that gets this answer.
void ExpectAnswered(const Failing& failing, const testing::ScriptedAnswer& answer,
                    ProviderAct act) {
    ExpectSameWithTheLevelOff<ProviderRig>(
        failing, [&](ProviderRig& rig) { rig.transport.Enqueue(answer); }, act);
}

TEST(SingleCallsWithTheLevelOff, FailAllTheSameWithTheTransport) {
    for (const Single& single : kSingleFetches) {
        SCOPED_TRACE(single.name);
        ExpectAnswered({}, testing::FailWith(3), single.act);
    }
}

TEST(SingleCallsWithTheLevelOff, HandOnTheServicesFailureAllTheSame) {
    for (const Single& single : kSingleFetches) {
        SCOPED_TRACE(single.name);
        ExpectAnswered({.code = test::kServiceFailure,
                        .records = 0,
                        .isWritten = single.isWrittenBesideAFailure},
                       single.answer(test::kServiceFailure), single.act);
    }
}

TEST(SingleCallsWithTheLevelOff, FailAllTheSameForAnswersThatCannotBeConverted) {
    qx_zam_connector_ZamDataProvider_GetSubscriptions_rsp subscriptions{};
    subscriptions.subscriptions.eventTypes = {1, 8};
    ExpectAnswered({}, testing::AnswerWith(subscriptions), &FetchSubscriptions);
    qx_zam_connector_ZamDataProvider_GetZamServerData_rsp serverData{};
    serverData.serverData.deviceStatus = 3;
    ExpectAnswered({}, testing::AnswerWith(serverData), &ServerData);
}

/// A method that fetches something through a channel, with its steps.
struct Fetch {
    const char* name;
    ProviderAct act;
    std::vector<unsigned> steps;
    bool isWrittenBeforeTheClose;
};

const Fetch kFetches[] = {
    {"GetPolicy",
     &PolicyTree,
     {test::kOpenPolicyChannel, test::kGetData, test::kGetZamHash, test::kGetZamResult,
      test::kCloseChannel},
     true},
    {"GetProductSettings",
     &SettingsTree,
     {test::kOpenSettingsChannel, test::kGetData, test::kGetZamHash, test::kGetZamResult,
      test::kCloseChannel},
     true},
    {"GetZamUpdatesStatus",
     &UpdatesStatus,
     {test::kOpenUpdates, test::kGetUpdates, test::kCloseUpdates},
     false},
};

/// Has every step fail once.
void ExpectFailingFetches(const Fetch& fetch, test::Fault fault, int code,
                          std::size_t pullRecords) {
    for (const unsigned step : fetch.steps) {
        SCOPED_TRACE(::testing::Message() << fetch.name << ", operation " << step);
        const bool isPull = step == test::kGetUpdates;
        const bool isClose = step == fetch.steps.back();
        ExpectSameWithTheLevelOff<ProviderRig>(
            {.code = isPull ? test::kUnspecified : code,
             .records = isPull ? pullRecords : 1,
             .isWritten = isClose && fetch.isWrittenBeforeTheClose},
            [&](ProviderRig& rig) {
                rig.Give(zuv::Map{{"a", 1}});
                rig.updates[0] = {{MakeId(1)}};
                rig.Fail(step, fault);
            },
            fetch.act);
    }
}

TEST(PullsWithTheLevelOff, FailAllTheSameWithTheTransport) {
    for (const Fetch& fetch : kFetches) {
        ExpectFailingFetches(fetch, {.transport = 3}, test::kUnspecified, 2);
    }
}

TEST(PullsWithTheLevelOff, FailAllTheSameWithTheSession) {
    for (const Fetch& fetch : kFetches) {
        for (const auto& row : test::kSessionFailures) {
            ExpectFailingFetches(fetch, {.session = row.status}, row.code, 1);
        }
    }
}

TEST(PullsWithTheLevelOff, HandOnTheServicesResultAllTheSame) {
    for (const ProviderAct act : {&PolicyTree, &SettingsTree}) {
        ExpectSameWithTheLevelOff<ProviderRig>(
            {.code = test::kServiceFailure, .records = 0, .isWritten = true},
            [](ProviderRig& rig) {
                rig.Give(1);
                rig.result = test::kServiceFailure;
            },
            act);
    }
}

TEST(PullsWithTheLevelOff, FailAllTheSameForPiecesThatCannotBeConverted) {
    // The second is a sound piece, but the list without records is no tree.
    for (const char* const piece : {"\x02\x10", ""}) {
        for (const ProviderAct act : {&PolicyTree, &SettingsTree}) {
            ExpectSameWithTheLevelOff<ProviderRig>(
                {.code = test::kInvalidArgument}, [&](ProviderRig& rig) { rig.pieces = {piece}; },
                act);
        }
    }
    ExpectSameWithTheLevelOff<ProviderRig>(
        {},
        [](ProviderRig& rig) {
            qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp opened{};
            rig.transport.Enqueue(testing::AnswerWith(opened));
            qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp response{};
            response.updates.identifiers = {0, 17};
            rig.transport.Enqueue(testing::AnswerWith(response, std::string(20, 'x')));
        },
        &UpdatesStatus);
}

}  // namespace
}  // namespace zam_connector
