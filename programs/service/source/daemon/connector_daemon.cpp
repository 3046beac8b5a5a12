#include "daemon/connector_daemon.h"

#include <sys/resource.h>
#include <unistd.h>

#include <asio/post.hpp>
#include <utility>

#include "daemon/descriptor_share.h"
#include "data/settings_json.h"
#include "endpoints/client_certs_downloader_endpoint.h"
#include "endpoints/conn_command_sender_endpoint.h"
#include "endpoints/conn_controller_endpoint.h"
#include "endpoints/conn_settings_holder_endpoint.h"
#include "endpoints/endpoint_catalog.h"
#include "endpoints/product_data_holder_endpoint.h"
#include "endpoints/zam_data_provider_endpoint.h"
#include "lanes.h"
#include "link/connection_plan.h"
#include "qx/endpoint_names.h"
#include "zam_platform/spin_setting.h"

namespace zam_service {
namespace {

zam_platform::ServerLimits Limits(const DaemonConfig& config) {
    zam_platform::ServerLimits limits;
    rlimit descriptors{};
    if (::getrlimit(RLIMIT_NOFILE, &descriptors) == 0) {
        limits.connectionsPerUser =
            ConnectionsOfUser(descriptors.rlim_cur, limits.connectionsPerUser);
    }
    limits.spinCap = zam_platform::SpinCap(config.spin);
    return limits;
}

}  // namespace

ConnectorDaemon::ConnectorDaemon(const DaemonConfig& config)
    : runtime_(zam_platform::PrepareRuntimeDirectory(config.runtimeDirectory)),
      lock_(runtime_),
      files_(config.dataFolder),
      server_({}, {.ownUser = ::geteuid(), .group = config.group}, Limits(config)),
      workers_(kWorkerThreads, kLaneCount, kMaxJobs),
      history_(server_.Context(), workers_, files_),
      settings_(server_.Context(), workers_, files_),
      uploads_(server_.Context(), workers_, files_, history_),
      link_(server_.Context(), history_),
      notices_(link_),
      folder_(server_.Context(), workers_, files_),
      certs_(server_.Context(), workers_, files_) {
    ServeFiles();
    Serve("ConnController", std::make_unique<ConnControllerEndpoint>(link_));
    Serve("ConnSettingsHolder", std::make_unique<ConnSettingsHolderEndpoint>(settings_));
    Serve("ConnCommandSender", std::make_unique<ConnCommandSenderEndpoint>(link_, history_));
    ServeData();
    ServeNotices("ConnStateNotifier", notices_.States());
    ServeNotices("ZamDataNotifier", notices_.Data());
    uploads_.OnSettings([this] { notices_.Tell(zam_vocabulary::NoticeKind::SettingsSynced); });
    ServeDownloads();
    Listen(config);
}

ConnectorDaemon::~ConnectorDaemon() {
    Finish();
}

void ConnectorDaemon::Run() {
    server_.Run();
    Finish();
}

void ConnectorDaemon::Stop() {
    asio::post(server_.Context(), InRoom(stopRoom_, [this] { server_.Stop(); }));
}

std::string ConnectorDaemon::SocketPath() const {
    return runtime_.Path() + "/" + zam_platform::SocketName(qx::kConnectorService);
}

void ConnectorDaemon::Serve(std::string_view interface,
                            std::unique_ptr<zam_platform::EndpointHandler> handler,
                            FaultWitness* witness) {
    const Endpoint& endpoint = EndpointOf(interface);
    auto faults =
        std::make_unique<FaultInjector>(server_.Context(), faults_, endpoint, *handler, witness);
    server_.Serve(RuleOf(endpoint, *faults));
    served_.push_back({.handler = std::move(handler), .faults = std::move(faults)});
}

void ConnectorDaemon::ServeData() {
    auto provider = std::make_unique<ZamDataProviderEndpoint>(server_.Context(), channelIds_,
                                                              channelQuota_, provider_, uploads_);
    auto holder =
        std::make_unique<ProductDataHolderEndpoint>(server_, channelIds_, channelQuota_, uploads_);
    server_.OnSessionEnd([this, provider = provider.get(),
                          holder = holder.get()](const zam_platform::SessionToken& client) {
        provider->EndSession(client);
        holder->EndSession(client);
        notices_.EndSession(client);
    });
    server_.OnConnectionBroken([holder = holder.get()](const zam_platform::SessionToken& client,
                                                       const zam_platform::LostCall& lost) {
        holder->OnConnectionBroken(client, lost);
    });
    FaultWitness* const witness = holder.get();
    Serve("ZamDataProvider", std::move(provider));
    Serve("ProductDataHolder", std::move(holder), witness);
}

void ConnectorDaemon::ServeNotices(std::string_view interface, NoticeBoard& board) {
    auto notifier = std::make_unique<NotifierEndpoint>(
        server_.Context(), board,
        [this](const zam_platform::SessionToken& client) { server_.NoticeBroken(client); });
    FaultWitness* const witness = notifiers_.emplace_back(notifier.get());
    Serve(interface, std::move(notifier), witness);
}

void ConnectorDaemon::ServeDownloads() {
    auto downloader = std::make_unique<FileDownloaderEndpoint>(server_.Context(), workers_, files_);
    downloader_ = downloader.get();
    Serve("ZamFileDownloader", std::move(downloader));
    Serve("ZamClientCertsDownloader", std::make_unique<ClientCertsDownloaderEndpoint>(certs_));
    folder_.OnBack([this] { certs_.Reattach(); });
}

/// Whoever waits for the connector's socket to appear finds the other one there too.
void ConnectorDaemon::Listen(const DaemonConfig& config) {
    const bool openToAll = config.group.has_value();
    downloadSocket_.emplace(runtime_, qx::kFileDownloaderService, openToAll);
    server_.Accept(downloadSocket_->Release());
    socket_.emplace(runtime_, qx::kConnectorService, openToAll);
    server_.Accept(socket_->Release());
}

void ConnectorDaemon::ServeFiles() {
    ServeProviderFiles(folder_, provider_,
                       [this](zam_vocabulary::NoticeKind kind) { notices_.Tell(kind); });
    folder_.Serve(
        ServeJson<ConnectionPlan>(kConnectionFile, kReadLane, ReadConnectionPlan,
                                  [this](ConnectionPlan plan) { link_.SetPlan(std::move(plan)); }));
    folder_.Serve(ServeJson<FaultRules>(kFaultsFile, kReadLane, FaultRules::Read,
                                        [this](FaultRules rules) { faults_ = std::move(rules); }));
    folder_.Serve(ServeJson<zam_connector::ZamConnectorSettings>(
        kSettingsFile, kSettingsLane, ReadSettings,
        [this](zam_connector::ZamConnectorSettings settings) { settings_.Publish(settings); }));
}

/// Ends everything that refers to the loop or to a client, so that the parts can be destroyed in
/// any order: no new calls, no timers, every job done, every answer given.
void ConnectorDaemon::Finish() {
    if (std::exchange(isFinished_, true)) {
        return;
    }
    socket_.reset();
    downloadSocket_.reset();
    server_.TakeNoMore();
    for (const Served& served : served_) {
        served.faults->Close();
    }
    for (NotifierEndpoint* const notifier : notifiers_) {
        notifier->Close();
    }
    downloader_->Close();
    link_.Close();
    folder_.Close();
    certs_.Close();
    // An upload that is on the disk is answered behind its line in the history, which takes the
    // loop and a worker once more.
    while (uploads_.Unanswered() != 0) {
        server_.RunOne();
    }
    workers_.Finish();
    history_.Close();
    server_.RunReady();
}

}  // namespace zam_service
