#pragma once

#include <optional>
#include <string>

#include "command.h"
#include "zam_connector/i_zam_data_provider.h"
#include "zuv/path.h"

namespace zamctl {

/// "0x" and 16 hexadecimal digits, as the service writes hashes.
std::string HashText(unsigned long hash);

/// "managed".
const char* DeviceStatusName(zam_connector::ZamDeviceStatus status);

/// The members of `server_data.json`.
Fields ServerDataFields(const zam_connector::ZamServerData& data);

/// In which form data is wanted.
struct DataForm {
    bool json = false;  ///< one document in a line
    /// Nothing but the tree, as typed JSON: in a line with `json`, else indented.
    bool treeOnly = false;
    zuv::Path path;       ///< of the part of a tree that is wanted
    bool toFile = false;  ///< not to standard output, which may be a terminal
};

/// The functions below fetch data and give it as it is to be printed, its last line end included.
/// They throw `Failure`, and block as long as the calls do.
using DataFetch = std::string (*)(Context& context, zam_connector::IZamDataProvider& provider,
                                  const DataForm& form);

std::string FetchSubscriptions(Context& context, zam_connector::IZamDataProvider& provider,
                               const DataForm& form);
std::string FetchServerData(Context& context, zam_connector::IZamDataProvider& provider,
                            const DataForm& form);
/// To a file without `json`, the certificate byte for byte.
std::string FetchReserveCert(Context& context, zam_connector::IZamDataProvider& provider,
                             const DataForm& form);
std::string FetchUpdatesStatus(Context& context, zam_connector::IZamDataProvider& provider,
                               const DataForm& form);

}  // namespace zamctl
