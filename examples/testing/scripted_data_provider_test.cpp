#include <gtest/gtest.h>

#include <utility>

#include "zam_connector/zam_connector.h"
#include "zam_connector_testing/scripted_data_provider.h"

using zam_connector::testing::ScriptedDataProvider;

/// Code of the application: whether the server lets it update itself.
bool MayUpdate(zam_connector::IZamDataProvider& provider) {
    std::pair<unsigned long, zam_connector::ZamPolicy> policy;
    if (provider.GetPolicy(policy) != 0) {
        return false;
    }
    const zuv::TValue* const update = policy.second.tree.Find("update");
    const zuv::TValue* const allowed = update != nullptr ? update->Find("allowed") : nullptr;
    return allowed != nullptr && *allowed == zuv::TValue(true);
}

TEST(Application, UpdatesOnlyWhenThePolicySaysSo) {
    ScriptedDataProvider provider;
    EXPECT_FALSE(MayUpdate(provider));

    ScriptedDataProvider::Data data;
    data.policy.second.tree = zuv::Map{{"update", zuv::Map{{"allowed", true}}}};
    provider.Set(data);
    EXPECT_TRUE(MayUpdate(provider));

    data.result = static_cast<int>(0x8000004BU);
    provider.Set(data);
    EXPECT_FALSE(MayUpdate(provider)) << "no policy, no update";
}
