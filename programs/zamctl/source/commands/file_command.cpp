#include "commands/file_command.h"

#include <fmt/format.h>

#include <filesystem>

#include "command_set.h"
#include "download/file_download.h"
#include "download/progress.h"
#include "output_file.h"
#include "printable.h"
#include "served_files.h"
#include "times.h"
#include "values.h"

namespace zamctl {
namespace {

constexpr char kHangs[] =
    "\nzamctl file get: the time is over, and neither the service nor the disk has answered\n"
    "Run the same command again: it goes on where this one ended.\n";

/// Shows what a download tells, and knows what the library logged.
class ShownDownload final : public DownloadWatcher {
public:
    ShownDownload(Context& context, Progress& progress) : context_(context), progress_(progress) {}

    void Advanced(std::uint64_t bytes, std::uint64_t totalBytes) override {
        progress_.Show(bytes, totalBytes);
    }
    void Noted(const std::string& text) override { progress_.Note(text); }
    std::string Cause() override { return context_.TakeCause(); }

private:
    Context& context_;
    Progress& progress_;
};

Progress::Style StyleFor(const Context& context) {
    if (context.output.IsQuiet()) {
        return Progress::Style::None;
    }
    return context.system.ErrIsTerminal() ? Progress::Style::Bar : Progress::Style::Lines;
}

std::string Summary(const DownloadReport& report, const std::string& target) {
    std::string text =
        fmt::format("{} bytes written to {}", report.content.sizeBytes, Quote(target));
    if (report.resumedBytes > 0) {
        text += fmt::format(", {} of them by an earlier run", report.resumedBytes);
    }
    return text + fmt::format("\nsha256 {}", report.content.sha256);
}

Fields Document(const DownloadReport& report, const std::string& target) {
    return {{"file", target},
            {"size_bytes", report.content.sizeBytes},
            {"sha256", report.content.sha256},
            {"resumed_bytes", report.resumedBytes},
            {"fetched_bytes", report.fetchedBytes},
            {"interruptions", report.interruptions},
            {"damaged_chunks", report.damagedChunks},
            {"restarts", report.restarts},
            {"result", 0}};
}

void DeclarePath(Options& options, std::string& path) {
    options.Text("NAME", "TEXT", path, "Path of the file at the server, with / between the levels")
        .Required()
        .Offers(OfferServedFiles);
}

}  // namespace

void FileInfoCommand::Declare(Options& options) {
    DeclarePath(options, path_);
}

void FileInfoCommand::Run(Context& context) {
    const ConnectorInterfaces connector = context.Connector();
    zam_connector::FileInfo info;
    const int code = context.Checked(
        "describe the file", [&] { return connector.fileDownloader.GetFileInfo({path_}, info); });
    const std::int64_t time = info.modificationTime.Count();
    const std::string chunks =
        info.chunkSizeBytes == 0 ? "any" : fmt::format("{} bytes", info.chunkSizeBytes);
    Fields document = {{"path", path_},
                       {"size_bytes", info.sizeBytes},
                       {"sha256", info.sha256},
                       {"modification_time", nullptr},
                       {"chunk_size_bytes", info.chunkSizeBytes},
                       {"result", code}};
    if (time != 0) {
        document["modification_time"] = UtcSecondsText(time);
    }
    context.output.Result(fmt::format("size               {} bytes\nsha256             {}\n"
                                      "modification_time  {}\nchunk_size         {}",
                                      info.sizeBytes, PrintableLine(info.sha256),
                                      time == 0 ? "unknown" : UtcSecondsText(time), chunks),
                          document);
}

void FileGetCommand::Declare(Options& options) {
    DeclarePath(options, path_);
    options.File(
        "-o,--output", [this](const std::string& file) { output_ = file; },
        "File to write, default the last part of NAME");
}

std::string FileGetCommand::Target() const {
    if (output_) {
        if (*output_ == "-") {
            throw UsageError(
                "--output: a file is needed; what comes is checked as a whole before "
                "it may be used");
        }
        return OutputTarget(*output_);
    }
    const std::string name = std::filesystem::path(path_).filename().string();
    if (name.empty() || name == "." || name == "..") {
        throw UsageError(
            fmt::format("{} ends in no name for a file; give one with --output", Quote(path_)));
    }
    return OutputTarget(name);
}

void FileGetCommand::Run(Context& context) {
    const std::string target = Target();
    const ConnectorInterfaces connector = context.Connector();
    if (context.timeout) {
        context.clock.LimitRun(*context.timeout + kGrace, kHangs, kExitFailed);
    }
    context.clock.CatchInterrupt();
    const DownloadOrder order{
        .path = path_, .target = target, .timeout = context.timeout, .start = context.start};
    DownloadReport report;
    {
        // Ends the line of its bar before the summary is printed.
        Progress progress(context.err, context.clock, StyleFor(context));
        ShownDownload shown(context, progress);
        // What was logged before this is no reason for what happens to the download.
        context.TakeCause();
        report = FileDownload(connector.fileDownloader, context.clock, shown).Run(order);
    }
    context.output.Confirmation(Summary(report, target), Document(report, target));
}

void DeclareFile(CommandSet& commands) {
    CommandSet file = commands.Group("file", "Describe or fetch a file of the server");
    file.Add("info", "Print a file's size, SHA-256 and modification time",
             std::make_shared<FileInfoCommand>());
    file.Add("get", "Fetch a file whole, or the rest of it", std::make_shared<FileGetCommand>());
}

}  // namespace zamctl
