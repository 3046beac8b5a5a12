#include <csignal>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>

#include "hot_client_fixture.h"
#include "support/temporary_folder.h"

namespace zam_connector::test {
namespace {

/// The program of a service, which another can take the place of.
class ReplaceableProgram {
public:
    ReplaceableProgram() { Become(ZAM_CONNECTORD); }

    void Become(const std::string& program) const {
        std::filesystem::remove(Path());
        std::filesystem::create_symlink(program, Path());
    }

    std::string Path() const { return folder_.Path("zam_connectord"); }

private:
    const zam_test::TemporaryFolder folder_;
};

/// A client whose calls go through memory, and a service of before there was any in the place of
/// its own.
class ReplacedWhileHot : private ReplaceableProgram, public HotClientTest {
protected:
    ReplacedWhileHot() : HotClientTest(Path()) {}

    /// The client goes on, and has done something with the service that is there now.
    bool IsServed() {
        // One that was under way may have been confirmed by the service before.
        const std::size_t before = Told("event").size();
        return Eventually([&] { return Told("event").size() > before + 1; });
    }

    void Replace(const std::string& program, const std::function<void()>& end) {
        end();
        Become(program);
        StartHotService();
    }
};

TEST_F(ReplacedWhileHot, GoesByTheSocketUntilItsServiceIsBackAndLosesAndRepeatsNothing) {
    if (!CanPoll()) {
        GTEST_SKIP() << "calls go through memory between two CPUs";
    }
    StartHotService();
    StartClient();
    ASSERT_TRUE(IsHot());
    const std::function<void()> ends[] = {[this] { EXPECT_EQ(service_.Stop(), 0); },
                                          [this] { service_.Kill(); }};
    for (const auto& end : ends) {
        Replace(ZAM_CONNECTORD_OF_SOCKETS, end);
        ASSERT_TRUE(IsServed());
        EXPECT_EQ(NumberInMemory(client_->Pid()), 0U);
        Replace(ZAM_CONNECTORD, end);
        ASSERT_TRUE(IsHot());
    }
    ASSERT_TRUE(IsServed());
    client_->Signal(SIGKILL);
    client_->Wait();
    ExpectEventsOnce();
    EXPECT_EQ(service_.Log().find("connection closed"), std::string::npos) << service_.Log();
}

}  // namespace
}  // namespace zam_connector::test
