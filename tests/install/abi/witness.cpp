// Refers to every type that clients and the library share, so that their layouts and virtual tables
// stand in the debugging information of one small library. What the library exports is recorded in
// ../symbols.

#include "tree_json/tree_json.h"
#include "vd/arena.h"
#include "vd/runtime_directory.h"
#include "vd/service_locator.h"
#include "vd/transport_features.h"
#include "vd/zor_transport.h"
#include "zam_connector/zam_connector.h"
#include "zor/logger.h"
#include "zuv/zuv.h"

using namespace zam_connector;

void Witness(const struct Records& records, const struct Interfaces& interfaces);

struct Records {
    AppEula* appEula;
    AppUpdates* appUpdates;
    ClientCertInfo* clientCertInfo;
    DynamicAppInfo* dynamicAppInfo;
    FileChunk* fileChunk;
    FileInfo* fileInfo;
    UpdateInfo* updateInfo;
    UpdateStatusInfo* updateStatusInfo;
    ZamConnCreateParameters* createParameters;
    ZamConnectionParameters* connectionParameters;
    ZamConnectorSettings* connectorSettings;
    ZamConnectorState* connectorState;
    zam_locale::IZamLocaleFactory* localeFactory;
    qel::CheckFailedException* checkFailed;
    qel::InvalidArgumentException* invalidArgument;
    tree_json::JsonError* jsonError;
    tree_json::WriteOptions* writeOptions;
    zor::logger::DefaultLoggerImpl* logger;
    zuv::TValue* tree;
    zuv::Error* treeError;
    zuv::BadKind* badKind;
    VdZorTransport* transport;
    VdTransportStatistics* transportStatistics;
    vd_arena* arena;
    vd_bytes* bytes;
    vd_message_header* header;
    vd::RuntimeDirectoryDiagnosis* diagnosis;
};

struct Interfaces {
    IZamConnector* connector;
    IZamConnController* controller;
    IZamConnSettingsHolder* settingsHolder;
    IZamConnStateSubscriber* stateSubscriber;
    IZamConnCommandSender* commandSender;
    IZamDataProvider* dataProvider;
    IZamDataChangeSubscriber* dataChangeSubscriber;
    IProductDataHolder* productDataHolder;
    IZamFileDownloader* fileDownloader;
    IZamClientCertsDownloader* clientCertsDownloader;
    zam_locale::IZamLocaleInfo* localeInfo;
    zam_locale::IZamLocationInfo* locationInfo;
};

void Witness(const Records& /*records*/, const Interfaces& /*interfaces*/) {}
