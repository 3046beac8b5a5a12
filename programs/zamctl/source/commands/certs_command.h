#pragma once

#include <optional>
#include <string>

#include "command.h"
#include "zam_connector/client_cert_info.h"

namespace zamctl {

/// Prints the client certificates that the server has for this device, or writes them to a file
/// that only its owner may read.
class CertsCommand final : public Command {
public:
    void Declare(Options& options) override;
    void Run(Context& context) override;

private:
    zam_connector::ClientCertParams params_;
    bool withKeys_ = false;              ///< private keys too; they go nowhere otherwise
    std::optional<std::string> output_;  ///< a file for PEM texts; "-" for standard output
};

}  // namespace zamctl
