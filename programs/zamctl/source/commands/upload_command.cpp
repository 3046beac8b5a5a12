#include "commands/upload_command.h"

#include <fmt/format.h>

#include "call_timeout.h"
#include "codes.h"
#include "command_set.h"
#include "data_answers.h"
#include "upload_reader.h"

namespace zamctl {
namespace {

/// The bounds of the service's own files: of plain JSON, and of trees.
constexpr std::size_t kMostPlainBytes = std::size_t{16} << 20U;
constexpr std::size_t kMostTreeBytes = std::size_t{256} << 20U;

constexpr char kNothingToDo[] = "nothing to do";

/// `send` makes the call over the interface that it is given.
template <typename Send>
void Upload(Context& context, const char* action, Send&& send) {
    const ConnectorInterfaces connector = context.Connector();
    const int code = context.Checked(action, [&] { return send(connector.productDataHolder); });
    context.output.Confirmation(SuccessText(code, "uploaded", kNothingToDo), {{"result", code}});
}

/// The same for what the service gives a hash of.
template <typename Send>
void UploadHashed(Context& context, const char* action, Send&& send) {
    const ConnectorInterfaces connector = context.Connector();
    unsigned long hash = 0;
    const int code =
        context.Checked(action, [&] { return send(connector.productDataHolder, hash); });
    context.output.Confirmation(
        SuccessText(code, fmt::format("hash {}", HashText(hash)), kNothingToDo),
        {{"hash", HashText(hash)}, {"result", code}});
}

void UploadAppInfo(Context& context, const Input& input) {
    const zam_connector::AppInfo info = ReadAppInfo(input);
    Upload(context, "upload the application information",
           [&info](auto& holder) { return holder.SetAppInfo(info); });
}

void UploadDynamicAppInfo(Context& context, const Input& input) {
    const zam_connector::DynamicAppInfo info = ReadDynamicAppInfo(input);
    Upload(context, "upload the dynamic application information",
           [&info](auto& holder) { return holder.SetAppInfoDynamic(info); });
}

void UploadEulas(Context& context, const Input& input) {
    const std::vector<zam_connector::AppEula> eulas = ReadEulas(input);
    UploadHashed(
        context, "upload the licence agreements",
        [&eulas](auto& holder, unsigned long& hash) { return holder.SetAppEulas(eulas, hash); });
}

void UploadUpdates(Context& context, const Input& input) {
    const zam_connector::AppUpdates updates = ReadUpdates(input);
    UploadHashed(context, "upload the updates", [&updates](auto& holder, unsigned long& hash) {
        return holder.SetAppUpdates(updates, hash);
    });
}

void UploadSettings(Context& context, const Input& input) {
    const zam_connector::ZamProductSettings settings = ReadProductSettings(input);
    UploadHashed(context, "upload the product settings",
                 [&settings](auto& holder, unsigned long& hash) {
                     return holder.SetSettings(settings, hash);
                 });
}

constexpr UploadKind kKinds[] = {
    {"app-info", "What stays as it is while the product runs, as plain JSON", kMostPlainBytes,
     &UploadAppInfo},
    {"app-info-dynamic", "What changes while the product runs, as plain JSON", kMostPlainBytes,
     &UploadDynamicAppInfo},
    {"eulas", "All licence agreements, as typed JSON", kMostTreeBytes, &UploadEulas},
    {"updates", "All updates and their states, as typed JSON", kMostTreeBytes, &UploadUpdates},
    {"settings", "The product's settings, any tree as typed JSON", kMostTreeBytes, &UploadSettings},
};

}  // namespace

void UploadCommand::Declare(Options& options) {
    options
        .Text("FILE", "TEXT", file_,
              "In the form of the service's own uploads; - reads standard input")
        .Required()
        .Offers(OfferFiles());
}

void UploadCommand::Run(Context& context) {
    const Input input = ReadInput("FILE", file_, context.in, kind_.mostBytes);
    // The close is answered when all of it is on the disk.
    constexpr std::size_t kBytesPerSecond = 1'000'000;
    if (!context.timeout) {
        SetCallTimeout(context.system,
                       kCallTimeout + std::chrono::seconds(input.text.size() / kBytesPerSecond));
    }
    kind_.upload(context, input);
}

void DeclareUpload(CommandSet& commands) {
    CommandSet upload = commands.Group("upload", "Tell the service about the product");
    for (const UploadKind& kind : kKinds) {
        upload.Add(kind.name, kind.description, std::make_shared<UploadCommand>(kind));
    }
}

}  // namespace zamctl
