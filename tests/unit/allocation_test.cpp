#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "common/log.h"
#include "proxy_fixture.h"
#include "qel/exception.h"
#include "support/allocations.h"

namespace zam_connector {
namespace {

/// Allocations that `act` makes.
template <typename Act>
int AllocationsOf(Act&& act) {
    const int before = zam_test::g_allocations;
    act();
    return zam_test::g_allocations - before;
}

/// Takes levels from its threshold upwards and keeps nothing.
class SilentLogger final : public zor::logger::ZORLogger {
public:
    explicit SilentLogger(int threshold) : threshold_(threshold) { InstallRootLogger(this); }
    ~SilentLogger() override { InstallRootLogger(nullptr); }

    bool IsEnabled(int level) const override { return threshold_ <= level; }
    void LogImpl(int /*level*/, const char* /*file*/, int /*line*/, const char* /*function*/,
                 std::string_view text) override {
        loggedBytes_ += text.size();
    }
    std::size_t LoggedBytes() const { return loggedBytes_; }

private:
    int threshold_;
    std::size_t loggedBytes_ = 0;
};

constexpr common::LogSite kSite{"file", 1, "Function"};

TEST(AllocationCounter, CountsTheLibrariesToo) {
    EXPECT_EQ(AllocationsOf([] {}), 0);
    EXPECT_EQ(AllocationsOf([] { ::operator delete(::operator new(100)); }), 1);
    EXPECT_GE(AllocationsOf([] { qel::ResultCodeText(0); }), 1);
}

TEST(Logging, AllocatesNothingWhenTheLevelIsOff) {
    SilentLogger logger(5);
    const std::string longText(10000, 'x');
    EXPECT_EQ(AllocationsOf([&] { common::Log(4, kSite, "{} {}", longText, 5); }), 0);
    EXPECT_EQ(AllocationsOf([&] { common::Log(3, kSite, "{}", longText); }), 0);
    EXPECT_EQ(AllocationsOf([&] { common::Failure(kSite, "{}", longText); }), 0);
    try {
        throw qel::CheckFailedException("f", 1) << longText;
    } catch (...) {
        EXPECT_EQ(AllocationsOf([] { common::CaughtFailure(kSite, "{}"); }), 0);
    }
    EXPECT_EQ(logger.LoggedBytes(), 0U);
}

TEST(Logging, AllocatesOnlyForTextsBeyondItsBuffer) {
    SilentLogger logger(4);
    EXPECT_EQ(AllocationsOf([] { common::Failure(kSite, "status {}", -7); }), 0);
    EXPECT_EQ(logger.LoggedBytes(), 9U);
    const std::string longText(10000, 'x');
    EXPECT_GE(AllocationsOf([&] { common::Failure(kSite, "{}", longText); }), 1);
}

/// Answers every call at once with what its `platform` says, and allocates nothing.
int AnswerZeros(VdZorTransport* transport, vd_message_header* /*request*/,
                vd_arena* /*requestArena*/, vd_message_header* response,
                vd_arena* /*responseArena*/) {
    std::memset(response + 1, 0, response->fixedSize - sizeof(*response));
    return *static_cast<int*>(transport->platform);
}

TEST(ConnectionControl, AllocatesNothingInItsCalls) {
    constexpr VdZorTransportOps kOps{&AnswerZeros};
    int status = 0;
    VdZorTransport transport{};
    transport.ops = &kOps;
    transport.platform = &status;
    proxy::ZamConnControllerProxy controller(test::ControllerRecord(&transport));
    proxy::ZamConnSettingsHolderProxy settingsHolder(test::SettingsHolderRecord(&transport));
    proxy::ZamConnCommandSenderProxy commandSender(test::CommandSenderRecord(&transport));
    ZamConnectionParameters parameters;
    parameters.serverAddress = std::string(1000, 's');
    std::string event(128, 'e');
    const SilentLogger logger(4);
    // A failed transport costs a record, which costs nothing either.
    for (status = 0; status < 2; ++status) {
        EXPECT_EQ(AllocationsOf([&] { controller.Start(parameters); }), 0);
        EXPECT_EQ(AllocationsOf([&] { controller.Stop(); }), 0);
        EXPECT_EQ(AllocationsOf([&] {
                      ZamConnectorState state{};
                      controller.GetState(state);
                  }),
                  0);
        EXPECT_EQ(AllocationsOf([&] { settingsHolder.Set({}); }), 0);
        EXPECT_EQ(AllocationsOf([&] {
                      ZamConnectorSettings settings;
                      settingsHolder.Get(settings);
                  }),
                  0);
        EXPECT_EQ(AllocationsOf([&] { commandSender.ScheduleSync(); }), 0);
        std::string copy = event;
        EXPECT_EQ(AllocationsOf([&] { commandSender.PostZamEvent(std::move(copy)); }), 0);
    }
}

}  // namespace
}  // namespace zam_connector
