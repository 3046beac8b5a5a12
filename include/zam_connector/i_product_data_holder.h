#pragma once

#include <vector>

#include "zam_connector/app_eula.h"
#include "zam_connector/app_info.h"
#include "zam_connector/app_updates.h"
#include "zam_connector/dynamic_app_info.h"
#include "zam_connector/zam_product_settings.h"

namespace zam_connector {

/// Tells the connector service about the product, which reports it to the management server.
///
/// Every operation blocks until the service has answered or cannot be reached and returns a result
/// code (`zam_connector/result_code.h`). None throws, but see `SetAppInfoDynamic`. Thread-safe: any
/// number of threads may call at once.
///
/// The last three send their data in pieces over a channel and return, when all went well, the
/// service's result for the whole; `hash`, the version stamp of what the service stored, is then
/// written, and unchanged otherwise. A failure of their own is 0x8000004B; 0x80000046 means that a
/// tree could not be flattened (a key that is empty, begins with a digit or holds one of
/// / \ " ' ` %, or a value in no state); 0x80000046 and 0x80000071 are also what a transfer gives
/// that the service broke off.
class IProductDataHolder {
public:
    virtual ~IProductDataHolder() = default;

    virtual int SetAppInfo(const AppInfo& info) noexcept = 0;

    /// `info.health` must be one of its enumerators: anything else ends the process.
    virtual int SetAppInfoDynamic(const DynamicAppInfo& info) noexcept = 0;

    /// Replaces all licence agreements.
    virtual int SetAppEulas(const std::vector<AppEula>& eulas, unsigned long& hash) noexcept = 0;

    /// Replaces all available updates and their states.
    virtual int SetAppUpdates(const AppUpdates& updates, unsigned long& hash) noexcept = 0;

    /// Replaces the product's settings. A value that comes to more than 675999 bytes cannot be
    /// sent: the call then sends empty pieces until the service refuses one. Counted are the bytes
    /// of a text and 17 more, of a blob and 16 more, and the text of the path.
    virtual int SetSettings(const ZamProductSettings& settings, unsigned long& hash) noexcept = 0;
};

}  // namespace zam_connector
