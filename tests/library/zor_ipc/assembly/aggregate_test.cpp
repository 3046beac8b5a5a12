#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <typeinfo>
#include <vector>

#include "library/zor_ipc/assembly/parts.h"
#include "qel/exception.h"

namespace zam_connector::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Each accessor gives the part that it is for, every time, and returns 0.
TEST(Aggregate, GivesEveryInterface) {
    Parts parts;
    const Parts& given = parts;
    const auto controller = given.controller;
    const auto settingsHolder = given.settingsHolder;
    const auto stateSubscriber = given.stateSubscriber;
    const auto commandSender = given.commandSender;
    const auto dataProvider = given.dataProvider;
    const auto dataChangeSubscriber = given.dataChangeSubscriber;
    const auto productDataHolder = given.productDataHolder;
    const auto fileDownloader = given.fileDownloader;
    const auto localeInfo = given.localeInfo;
    const auto locationInfo = given.locationInfo;
    const auto clientCertsDownloader = given.clientCertsDownloader;
    const std::unique_ptr<IZamConnector> connector = parts.Assemble();

    const auto expect = [&](auto accessor, const auto& part) {
        std::decay_t<decltype(part)> first;
        auto second = std::decay_t<decltype(part)>();
        EXPECT_EQ((connector.get()->*accessor)(first), 0);
        EXPECT_EQ((connector.get()->*accessor)(second), 0);
        EXPECT_EQ(first, part);
        EXPECT_EQ(second, part);
    };
    expect(&IZamConnector::GetZamController, controller);
    expect(&IZamConnector::GetSettingsHolder, settingsHolder);
    expect(&IZamConnector::GetStateChangeSubscriber, stateSubscriber);
    expect(&IZamConnector::GetCommandSender, commandSender);
    expect(&IZamConnector::GetDataProvider, dataProvider);
    expect(&IZamConnector::GetDataChangeSubscriber, dataChangeSubscriber);
    expect(&IZamConnector::GetProductDataHolder, productDataHolder);
    expect(&IZamConnector::GetFileDownloader, fileDownloader);
    expect(&IZamConnector::GetZamLocaleInfo, localeInfo);
    expect(&IZamConnector::GetZamLocationInfo, locationInfo);
    expect(&IZamConnector::GetClientCertsDownloader, clientCertsDownloader);
    EXPECT_THAT(parts.service.Calls(), IsEmpty());
}

TEST(Aggregate, ReleasesWhatAnOutParameterHeld) {
    Parts parts;
    const std::unique_ptr<IZamConnector> connector = parts.Assemble();
    bool released = false;
    std::shared_ptr<zam_locale::IZamLocationInfo> held(
        zam_locale::MicrosoftZamLocaleFactory().CreateZamLocationInfo().release(),
        [&](zam_locale::IZamLocationInfo* info) {
            released = true;
            delete info;
        });
    EXPECT_EQ(connector->GetZamLocationInfo(held), 0);
    EXPECT_TRUE(released);
}

const std::vector<std::string> kReleaseOrder = {
    "clientCertsDownloader", "locationInfo",         "localeInfo",   "fileDownloader",
    "productDataHolder",     "dataChangeSubscriber", "dataProvider", "commandSender",
    "stateSubscriber",       "settingsHolder",       "controller"};

TEST(Aggregate, ReleasesTheInterfacesInReverseOrder) {
    Parts parts;
    std::unique_ptr<IZamConnector> connector = parts.Assemble();
    EXPECT_THAT(parts.released, IsEmpty());
    connector.reset();
    EXPECT_EQ(parts.released, kReleaseOrder);
}

struct Refusal {
    const char* what;
    int line;
    std::function<void(Parts&)> spoil;
};

const std::vector<Refusal>& Refusals() {
    static const std::vector<Refusal> kRefusals = {
        {"first transport null", 39, [](Parts& parts) { parts.transports[0].reset(); }},
        {"second transport null", 39, [](Parts& parts) { parts.transports[1].reset(); }},
        {"first without operations", 40, [](Parts& parts) { parts.transports[0]->ops = nullptr; }},
        {"second without operations", 40, [](Parts& parts) { parts.transports[1]->ops = nullptr; }},
        {"first without handle", 41,
         [](Parts& parts) { parts.transports[0]->handle = VD_ZOR_INVALID_HANDLE; }},
        {"second without handle", 41,
         [](Parts& parts) { parts.transports[1]->handle = VD_ZOR_INVALID_HANDLE; }},
        {"controller", 43, [](Parts& parts) { parts.controller.reset(); }},
        {"settings holder", 44, [](Parts& parts) { parts.settingsHolder.reset(); }},
        {"state subscriber", 45, [](Parts& parts) { parts.stateSubscriber.reset(); }},
        {"command sender", 46, [](Parts& parts) { parts.commandSender.reset(); }},
        {"data provider", 47, [](Parts& parts) { parts.dataProvider.reset(); }},
        {"data change subscriber", 48, [](Parts& parts) { parts.dataChangeSubscriber.reset(); }},
        {"product data holder", 49, [](Parts& parts) { parts.productDataHolder.reset(); }},
        {"file downloader", 50, [](Parts& parts) { parts.fileDownloader.reset(); }},
        {"locale info", 51, [](Parts& parts) { parts.localeInfo.reset(); }},
        {"location info", 52, [](Parts& parts) { parts.locationInfo.reset(); }},
        {"client certs downloader", 53, [](Parts& parts) { parts.clientCertsDownloader.reset(); }},
    };
    return kRefusals;
}

/// The line of the check that refuses the parts; 0 when none does.
int RefusedAt(Parts& parts) {
    try {
        parts.Assemble();
        return 0;
    } catch (const qel::Exception& exception) {
        EXPECT_EQ(typeid(exception), typeid(qel::InvalidArgumentException));
        EXPECT_EQ(exception.Code(), 0);
        EXPECT_STREQ(exception.File(), "zam_connector_proxy");
        return exception.Line();
    }
}

TEST(Aggregate, RefusesEachPartThatIsNoGood) {
    for (const Refusal& refusal : Refusals()) {
        SCOPED_TRACE(refusal.what);
        Parts parts;
        refusal.spoil(parts);
        parts.released.clear();
        EXPECT_EQ(RefusedAt(parts), refusal.line);
        std::vector<std::string> expected = kReleaseOrder;
        if (refusal.line >= 43) {
            expected.erase(expected.end() - (refusal.line - 42));
        }
        EXPECT_EQ(parts.released, expected);
    }
}

/// Of two things that are no good the first in the order of the checks is told: all of the first
/// transport before the second, and the transports before the interfaces.
TEST(Aggregate, ChecksInOrder) {
    const std::vector<Refusal>& refusals = Refusals();
    for (std::size_t first = 6; first < refusals.size(); ++first) {
        for (std::size_t second = first + 1; second < refusals.size(); ++second) {
            Parts parts;
            refusals[second].spoil(parts);
            refusals[first].spoil(parts);
            EXPECT_EQ(RefusedAt(parts), refusals[first].line);
        }
        Parts parts;
        refusals[first].spoil(parts);
        parts.transports[1]->handle = VD_ZOR_INVALID_HANDLE;
        EXPECT_EQ(RefusedAt(parts), 41);
    }
    Parts parts;
    parts.transports[1].reset();
    parts.transports[0]->handle = VD_ZOR_INVALID_HANDLE;
    EXPECT_EQ(RefusedAt(parts), 41);
    Parts both;
    both.transports[0]->handle = VD_ZOR_INVALID_HANDLE;
    both.transports[0]->ops = nullptr;
    EXPECT_EQ(RefusedAt(both), 40);
}

TEST(Aggregate, TakesAnyNumberOfTransports) {
    Parts parts;
    parts.transports.clear();
    EXPECT_EQ(RefusedAt(parts), 0);
}

}  // namespace
}  // namespace zam_connector::test
