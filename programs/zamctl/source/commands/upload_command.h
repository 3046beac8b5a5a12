#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <utility>

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

/// All of them.
std::span<const UploadKind> UploadKinds();

/// Tells the service about the product.
class UploadCommand final : public Command {
public:
    /// `kind` is of `UploadKinds`; `file` is "-" for standard input.
    UploadCommand(const UploadKind& kind, std::string file) : kind_(kind), file_(std::move(file)) {}

    /// Throws `UsageError` before anything is sent when the file is no good.
    void Run(Context& context) override;

private:
    const UploadKind& kind_;
    std::string file_;
};

}  // namespace zamctl
