#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "common/arena.h"
#include "common/connection_casts.h"
#include "common/log.h"
#include "common/product_data_casts.h"
#include "data_handler/zam_conn_state_provider.h"
#include "data_handler/zam_data_provider.h"
#include "library/zor_ipc/call_frame/proxy_fixture.h"
#include "observer_group.h"
#include "product_data_holder_proxy.h"
#include "qel/exception.h"
#include "support/allocations.h"
#include "zam_client_certs_downloader_proxy.h"
#include "zam_data_provider_proxy.h"
#include "zam_file_downloader_proxy.h"

namespace zam_connector {
namespace {

/// Blocks that were asked of `calloc`, as arenas on the heap are.
std::atomic<int> g_callocs{0};

/// Allocations that `act` makes.
template <typename Act>
int AllocationsOf(Act&& act) {
    const int before = zam_test::g_allocations + g_callocs;
    act();
    return zam_test::g_allocations + g_callocs - before;
}

/// What an arena on the heap counts for: sanitizers have a `calloc` of their own.
#ifdef ZAM_WITHOUT_CALLOC
constexpr int kHeapArena = 0;
#else
constexpr int kHeapArena = 1;
#endif

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

/// A transport that `ops` answers, with what it knows in `platform`.
VdZorTransport TransportOver(const VdZorTransportOps& ops, void* platform) {
    VdZorTransport transport{};
    transport.ops = &ops;
    transport.platform = platform;
    return transport;
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
    VdZorTransport transport = TransportOver(kOps, &status);
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

/// Those that methods make outside of what catches exceptions: the connector's settings both ways,
/// the state, and the dynamic part of the application's information.
TEST(ConversionsWithoutAGuard, AllocateNothing) {
    const ZamConnectorSettings settings;
    const DynamicAppInfo dynamic;
    EXPECT_EQ(AllocationsOf([&] { common::CastFromVd(common::CastToVd(settings)); }), 0);
    EXPECT_EQ(AllocationsOf([] { common::CastFromVd(std::int32_t{2}); }), 0);
    EXPECT_EQ(AllocationsOf([] { common::CastFromVd(std::int32_t{77}); }), 0);
    EXPECT_EQ(AllocationsOf([&] { common::CastToVd(dynamic); }), 0);
}

/// What the service says to the call of a hash.
struct HashAnswer {
    int status;
    std::int32_t resultCode;
};

/// Answers with a hash and what its `platform` says, and allocates nothing.
int AnswerHash(VdZorTransport* transport, vd_message_header* /*request*/,
               vd_arena* /*requestArena*/, vd_message_header* response,
               vd_arena* /*responseArena*/) {
    const auto& answer = *static_cast<const HashAnswer*>(transport->platform);
    auto& hash = *reinterpret_cast<qx::HashResponse*>(response);
    hash.hash = 7;
    hash.resultCode = answer.resultCode;
    return answer.status;
}

constexpr int (proxy::ZamDataProviderProxy::*kHashGetters[])(unsigned long&) = {
    &proxy::ZamDataProviderProxy::GetPolicyHash,
    &proxy::ZamDataProviderProxy::GetSettingsHash,
    &proxy::ZamDataProviderProxy::GetSubscriptionHash,
    &proxy::ZamDataProviderProxy::GetSyncedSettingsHash,
    &proxy::ZamDataProviderProxy::GetZamUpdatesStatusHash,
};

TEST(HashGetters, AllocateNothingWhateverComesOfThem) {
    constexpr VdZorTransportOps kOps{&AnswerHash};
    constexpr int kRefusal = static_cast<int>(0x8000004CU);
    HashAnswer answer{};
    VdZorTransport transport = TransportOver(kOps, &answer);
    qx_zam_connector_ZamDataProvider_proxy record{};
    qx_zam_connector_ZamDataProvider_proxy_init(&record, &transport, 1);
    proxy::ZamDataProviderProxy provider(record);
    struct {
        HashAnswer answer;
        int code;
    } const rows[] = {{{0, 0}, 0}, {{0, kRefusal}, kRefusal}, {{-7, 0}, qel::kUnspecifiedError}};
    for (const int threshold : {4, 5}) {
        const SilentLogger logger(threshold);
        for (const auto& row : rows) {
            answer = row.answer;
            for (const auto get : kHashGetters) {
                unsigned long hash = 5;
                int code = 1;
                EXPECT_EQ(AllocationsOf([&] { code = (provider.*get)(hash); }), 0);
                EXPECT_EQ(code, row.code);
                EXPECT_EQ(hash == 7, code == 0 || (code == kRefusal && get != kHashGetters[4]));
            }
        }
        EXPECT_EQ(logger.LoggedBytes() != 0, threshold == 4) << "the failures' records";
    }
}

/// The arenas of all but the certificates are on the stack.
TEST(Downloads, AllocateNothingButWhatTheyHandOut) {
    constexpr VdZorTransportOps kOps{&AnswerZeros};
    int status = 0;
    VdZorTransport transport = TransportOver(kOps, &status);
    qx_zam_connector_ZamFileDownloader_proxy fileRecord{};
    qx_zam_connector_ZamFileDownloader_proxy_init(&fileRecord, &transport, 1);
    proxy::ZamFileDownloaderProxy files(fileRecord);
    qx_zam_connector_ZamClientCertsDownloader_proxy certsRecord{};
    qx_zam_connector_ZamClientCertsDownloader_proxy_init(&certsRecord, &transport, 2);
    proxy::ZamClientCertsDownloaderProxy certs(certsRecord);
    const SilentLogger logger(4);
    for (status = 0; status < 2; ++status) {
        EXPECT_EQ(AllocationsOf([&] {
                      FileInfo info;
                      files.GetFileInfo({}, info);
                  }),
                  0);
        EXPECT_EQ(AllocationsOf([&] {
                      FileChunk chunk;
                      files.GetFileChunk({}, chunk);
                  }),
                  0);
        EXPECT_EQ(AllocationsOf([&] {
                      std::vector<ClientCertInfo> all;
                      certs.GetClientCertificates({}, all);
                  }),
                  kHeapArena);
    }
}

/// Answers with a chunk of so many bytes as its `platform` says.
int AnswerChunk(VdZorTransport* transport, vd_message_header* /*request*/,
                vd_arena* /*requestArena*/, vd_message_header* response, vd_arena* responseArena) {
    auto& answer =
        *reinterpret_cast<qx_zam_connector_ZamFileDownloader_GetFileChunk_rsp*>(response);
    std::memset(response + 1, 0, response->fixedSize - sizeof(*response));
    const auto bytes = static_cast<std::uint32_t>(*static_cast<int*>(transport->platform));
    std::memset(responseArena->base, 'x', bytes);
    responseArena->used = bytes;
    answer.chunk.data = {0, bytes};
    return 0;
}

/// The bytes are copied out of the arena once and moved from there on.
TEST(Downloads, AllocateOnceForTheBytesOfAChunk) {
    constexpr VdZorTransportOps kOps{&AnswerChunk};
    int size = 65536;
    VdZorTransport transport = TransportOver(kOps, &size);
    qx_zam_connector_ZamFileDownloader_proxy record{};
    qx_zam_connector_ZamFileDownloader_proxy_init(&record, &transport, 1);
    proxy::ZamFileDownloaderProxy files(record);
    FileChunk chunk;
    EXPECT_EQ(AllocationsOf([&] { EXPECT_EQ(files.GetFileChunk({}, chunk), 0); }), 1);
    EXPECT_EQ(chunk.data.size(), 65536U);
}

/// Who cannot be told for want of memory would never be told again.
TEST(ObserversInARound, AreToldWithoutMemory) {
    class Observer final : public qor::observer::IChangeObserver<int, int> {
    public:
        int OnChange(const int& value) override { return told += value; }
        int told = 0;
    };
    std::atomic<std::uint64_t> counter{0};
    proxy::ObserverGroup<int> group(counter);
    const auto observer = std::make_shared<Observer>();
    group.Add(observer);
    group.Add({});
    group.Add(observer);
    EXPECT_EQ(AllocationsOf([&] { group.Notify(2); }), 0);
    EXPECT_EQ(observer->told, 4);
}

TEST(AllocationCounter, CountsArenasOnTheHeap) {
    EXPECT_EQ(AllocationsOf([] { const common::HeapArena arena(100); }), kHeapArena);
    EXPECT_EQ(AllocationsOf([] { const common::StackArena<100> arena; }), 0);
}

/// The rest of the calls that take nothing, answered by zeros and failing.
TEST(DataCalls, AllocateNothingWhereNothingIsHandedOut) {
    constexpr VdZorTransportOps kOps{&AnswerZeros};
    int status = 0;
    VdZorTransport transport = TransportOver(kOps, &status);
    qx_zam_connector_ProductDataHolder_proxy holderRecord{};
    qx_zam_connector_ProductDataHolder_proxy_init(&holderRecord, &transport, 1);
    proxy::ProductDataHolderProxy holder(holderRecord);
    qx_zam_connector_ZamDataProvider_proxy providerRecord{};
    qx_zam_connector_ZamDataProvider_proxy_init(&providerRecord, &transport, 2);
    proxy::ZamDataProviderProxy provider(providerRecord);
    qx_zam_connector_ZamDataNotifier_proxy dataRecord{};
    qx_zam_connector_ZamDataNotifier_proxy_init(&dataRecord, &transport, 3);
    proxy::ZamDataProvider data(dataRecord);
    qx_zam_connector_ConnStateNotifier_proxy stateRecord{};
    qx_zam_connector_ConnStateNotifier_proxy_init(&stateRecord, &transport, 4);
    proxy::ZamConnStateProvider states(stateRecord);
    const SilentLogger logger(3);
    long channel = 0;
    unsigned long hash = 0;
    ZamServerData serverData;
    std::string cert;
    unsigned int kind = 0;
    int state = 0;
    for (status = 0; status < 2; ++status) {
        EXPECT_EQ(AllocationsOf([&] { holder.SetAppInfoDynamic({}); }), 0);
        EXPECT_EQ(AllocationsOf([&] { holder.OpenAppEulasChannel(channel); }), 0);
        EXPECT_EQ(AllocationsOf([&] { holder.OpenAppUpdatesChannel(channel); }), 0);
        EXPECT_EQ(AllocationsOf([&] { holder.CloseChannel(channel, hash); }), 0);
        EXPECT_EQ(AllocationsOf([&] { holder.SetSettings({}, hash); }), 0) << "a none tree";
        EXPECT_EQ(AllocationsOf([&] { provider.GetZamServerData(serverData); }), 0);
        EXPECT_EQ(AllocationsOf([&] { provider.GetZamReserveCert(cert); }), 0);
        EXPECT_EQ(AllocationsOf([&] { data.Register(); }), 0);
        EXPECT_EQ(AllocationsOf([&] { data.GetData(kind); }), 0);
        EXPECT_EQ(AllocationsOf([&] { data.Unregister(); }), 0);
        EXPECT_EQ(AllocationsOf([&] { states.Register(); }), 0);
        EXPECT_EQ(AllocationsOf([&] { states.GetData(state); }), 0);
        EXPECT_EQ(AllocationsOf([&] { states.Unregister(); }), 0);
    }
}

}  // namespace
}  // namespace zam_connector

#ifndef ZAM_WITHOUT_CALLOC
/// The C library's own, under the name that it keeps for who replaces the other.
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);  // NOLINT

/// Counted for the libraries as well, and so not hidden.
extern "C" __attribute__((visibility("default"))) void* calloc(std::size_t count,
                                                               std::size_t size) noexcept {
    ++zam_connector::g_callocs;
    return __libc_calloc(count, size);
}
#endif
