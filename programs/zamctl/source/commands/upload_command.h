#pragma once

#include <cstddef>
#include <string>

#include "command.h"
#include "input_file.h"

namespace zamctl {

/// Something that can be uploaded.
struct UploadKind {
    const char* name;  ///< as the command line spells it
    const char* description;
    std::size_t mostBytes;  ///< of the JSON
    /// Reads the JSON, then sends it and prints what the service says. Throws `Failure`.
    void (*upload)(Context& context, const Input& input);
};

/// Tells the service about the product.
class UploadCommand final : public Command {
public:
    /// `kind` must outlive the object.
    explicit UploadCommand(const UploadKind& kind) : kind_(kind) {}

    void Declare(Options& options) override;

    /// Throws `UsageError` before anything is sent when the file is no good.
    void Run(Context& context) override;

private:
    const UploadKind& kind_;
    std::string file_;  ///< "-" for standard input
};

}  // namespace zamctl
