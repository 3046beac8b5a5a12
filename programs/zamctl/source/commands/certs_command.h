#pragma once

#include <optional>
#include <string>
#include <utility>

#include "command.h"
#include "zam_connector/client_cert_info.h"

namespace zamctl {

/// Prints the client certificates that the server has for this device, or writes them to a file
/// that only its owner may read.
class CertsCommand final : public Command {
public:
    struct Options {
        zam_connector::ClientCertParams params;
        bool withKeys = false;              ///< private keys too; they go nowhere otherwise
        std::optional<std::string> output;  ///< a file for PEM texts; "-" for standard output
    };

    explicit CertsCommand(Options options) : options_(std::move(options)) {}

    void Run(Context& context) override;

private:
    Options options_;
};

}  // namespace zamctl
