#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "support/scoped_environment.h"
#include "support/temporary_folder.h"
#include "support/test_server.h"
#include "vd/service_locator.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using zam_test::ScopedEnvironment;
using zam_test::TemporaryFolder;

/// A service in a process of its own. `kCustom` answers with the number of calls so far; `kHold`
/// is reported to the test.
class ServiceProcess {
public:
    explicit ServiceProcess(const std::string& directory) {
        auto pair = MakePair();
        process_ = ::fork();
        if (process_ == 0) {
            Run(directory, pair.second);
            ::_exit(1);
        }
        reports_ = std::move(pair.first);
        pair.second.Close();
        AwaitReport();
    }
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;
    ~ServiceProcess() { Kill(); }

    /// Waits until the service listens, and then until the next call is held.
    void AwaitReport() const { EXPECT_EQ(reports_.Read(1), Bytes{1}); }

    void Kill() {
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            ::waitpid(process_, nullptr, 0);
            process_ = 0;
        }
    }

private:
    class Handler final : public EndpointHandler {
    public:
        explicit Handler(const RawSocket& reports) : reports_(reports) {}

        void OnCall(const Request& request, Responder responder) override {
            ++calls_;
            if (request.operation == kHold) {
                held_.push_back(std::move(responder));
                reports_.Send({1});
                return;
            }
            TestMessage message{};
            message.value = request.operation == kCustom ? calls_ : 0;
            responder.Answer(message);
        }

    private:
        const RawSocket& reports_;
        std::uint64_t calls_ = 0;
        std::vector<Responder> held_;
    };

    static void Run(const std::string& path, const RawSocket& reports) {
        try {
            Handler handler(reports);
            TestEndpoint rules;
            EndpointRule rule = rules.Rule();
            rule.handler = &handler;
            const RuntimeDirectory directory(path);
            const DirectoryLock lock(directory);
            ListeningSocket socket(directory, kTestService, false);
            Server server({rule}, TestServer::OwnUser(), {});
            server.Accept(socket.Release());
            reports.Send({1});
            server.Run();
        } catch (const std::exception&) {
            // The test misses the report.
        }
    }

    RawSocket reports_;
    pid_t process_ = 0;
};

class KilledService : public ::testing::Test {
protected:
    void Init() {
        VdZorTransport_Init(&transport_, ServiceLocatorConnect(kTestService), 0, 0);
        ASSERT_NE(transport_.handle, VD_ZOR_INVALID_HANDLE);
    }

    zam_connector::testing::RecordingLogger logger_;
    TemporaryFolder temp_;
    ScopedEnvironment runtime_{"ZAM_RUNTIME_DIR", temp_.Path()};
    VdZorTransport transport_{};
};

TEST_F(KilledService, FailsTheCallUnderWayAndSendsNothingTwice) {
    auto service = std::make_unique<ServiceProcess>(temp_.Path());
    Init();
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(TestCall(kEcho).On(transport_), kStatusOk) << "the first call after a restart";
        {
            const Background underWay(
                [this] { EXPECT_EQ(TestCall(kHold).On(transport_), kStatusBroken); });
            service->AwaitReport();
            service->Kill();
        }
        EXPECT_EQ(TestCall(kEcho).On(transport_), kStatusUnavailable);

        service.reset();
        service = std::make_unique<ServiceProcess>(temp_.Path());
        TestCall count(kCustom);
        EXPECT_EQ(count.On(transport_), kStatusOk);
        EXPECT_EQ(count.Value(), 1U) << "this call is all that the new service has seen";
    }
}

TEST_F(KilledService, IsBackForAllThreadsThatCallMeanwhile) {
    auto service = std::make_unique<ServiceProcess>(temp_.Path());
    Init();
    std::atomic<int> answered{0};
    std::atomic<bool> done{false};
    std::vector<std::unique_ptr<Background>> callers;
    for (int index = 0; index < 4; ++index) {
        callers.push_back(std::make_unique<Background>([&] {
            while (!done) {
                const std::int32_t status = TestCall(kEcho).On(transport_);
                ASSERT_TRUE(status == kStatusOk || status == kStatusBroken ||
                            status == kStatusUnavailable)
                    << status;
                answered += status == kStatusOk ? 1 : 0;
            }
        }));
    }
    for (int round = 0; round < 3; ++round) {
        const int before = answered;
        Await("answers", [&] { return answered > before + 100; });
        service->Kill();
        service.reset();
        service = std::make_unique<ServiceProcess>(temp_.Path());
    }
    const int before = answered;
    Await("answers in the end", [&] { return answered > before + 100; });
    done = true;
}

}  // namespace
}  // namespace zam_platform::testing
