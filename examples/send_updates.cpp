// Tells the service about a product: what it is, its settings, and the updates that it knows of.
//
//     send_updates
//
// Prints what the service answered, and the hash of what it stored.

#include <iostream>
#include <memory>
#include <string>

#include "zam_connector/zam_connector.h"
#include "zuv/zuv.h"

namespace {

zam_connector::AppInfo ExampleProduct() {
    zam_connector::AppInfo info;
    info.productId = "example";
    info.productName = "Example";
    info.productVersion = "3.4.1";
    info.components = {{"engine", "3.4.0"}, {"interface", "3.4.1"}};
    info.capabilities = {"updates", "files"};
    return info;
}

/// Settings are any tree. The types of the numbers count: these are an int32 and an int64.
zam_connector::ZamProductSettings ExampleSettings() {
    return {zuv::Map{{"log_level", 2}, {"scan", zuv::Map{{"enabled", true}, {"period_s", 3600L}}}}};
}

/// An update that is to be had, and what became of it here. Times are what product and server have
/// agreed on: seconds since 1970 in this example, and numbers of its own for `status`.
zam_connector::AppUpdates ExampleUpdates() {
    zam_connector::ZamId id{};
    id.back() = std::byte{42};

    zam_connector::UpdateInfo update;
    update.id = id;
    update.releaseTime = qor::types::Timestamp(1769860800);
    update.name = "Example 3.5";
    update.url = "https://updates.example/3.5";
    update.importance = 2;
    update.description = "Quicker, and smaller";
    update.targetProduct = "example";  // optional fields that are not set are not sent

    zam_connector::UpdateStatusInfo status;
    status.id = id;
    status.releaseTime = update.releaseTime;
    status.installErrorCode = 28;
    status.installErrorText = "No space left on device";

    zam_connector::AppUpdates updates;
    updates.updates = {update};
    updates.statuses = {status};
    return updates;
}

/// Prints what became of an upload; true on success.
bool Report(const std::string& what, int code, const unsigned long* hash = nullptr) {
    std::cout << what << ": " << zam_connector::ResultCodeMessage(code);
    if (zam_connector::IsFailure(code)) {
        std::cout << '\n';
        return false;
    }
    if (hash != nullptr) {
        std::cout << ", hash 0x" << std::hex << *hash << std::dec;
    }
    std::cout << '\n';
    return true;
}

}  // namespace

int main() {
    std::shared_ptr<zam_connector::IZamConnector> connector;
    if (zam_connector::CreateZamConnector(connector, {"send_updates"}) != 0 || !connector) {
        std::cerr << "send_updates: cannot make a connector\n";
        return 1;
    }
    std::shared_ptr<zam_connector::IProductDataHolder> holder;
    connector->GetProductDataHolder(holder);

    bool isSent = Report("app info", holder->SetAppInfo(ExampleProduct()));
    // The hash is written when the service has stored all of it. By `GetSyncedSettingsHash` a
    // product learns later whether the server has its settings.
    unsigned long hash = 0;
    int code = holder->SetSettings(ExampleSettings(), hash);
    isSent = Report("settings", code, &hash) && isSent;
    code = holder->SetAppUpdates(ExampleUpdates(), hash);
    isSent = Report("updates", code, &hash) && isSent;
    return isSent ? 0 : 1;
}
