#include "data/data_folder.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <new>

#include "common/log.h"

namespace zam_service {
namespace {

using zam_connector::common::Here;
using zam_connector::common::Log;

constexpr char kSourceFile[] = "data_folder";

/// Between two looks for a folder that is away.
constexpr std::chrono::milliseconds kReattachPeriod{200};
/// Many programs save by moving the old file away and then writing a new one: that is one change,
/// not two. Well below the 50 ms within which a change is to be noticed.
constexpr std::chrono::milliseconds kSettleTime{20};
/// Before a file is read that was gone and is there again, but was not written and closed: it is
/// being written, or is a link to another file.
constexpr std::chrono::milliseconds kReturnTime{1000};

}  // namespace

DataFolder::Served::Served(DataFolder& folder, ServedFile served)
    : file(std::move(served)),
      reader(
          folder.loop_, folder.workers_, file.lane,
          [this, &folder] {
              return [this, &folder, outcome = folder.Read(file)] { folder.OnRead(file, outcome); };
          },
          [&folder] { return !folder.files_.IsAway(); }),
      settle(folder.loop_, [this, &folder] { folder.Settle(*this); }) {}

DataFolder::DataFolder(asio::io_context& loop, zam_platform::WorkerPool& workers,
                       FolderFiles& files)
    : loop_(loop),
      workers_(workers),
      files_(files),
      watcher_(loop, files.Path(),
               {.onFile = [this](const std::string& name) { OnFile(name); },
                .onGone = [this](const std::string& name) { OnGone(name); },
                .onLost = [this] { OnLost(); },
                .onFolder = [this] { OnFolder(); }}),
      reattach_(loop, [this] { Reattach(); }) {
    watcher_.Watch(files_.Open()->Get());
}

void DataFolder::Serve(ServedFile file) {
    Served& served = served_.emplace_back(*this, std::move(file));
    try {
        const Outcome outcome = Read(served.file);
        if (outcome.publish) {
            outcome.publish();
        } else {
            Log(zor::logger::kLevelError, Here(kSourceFile, "Serve"), "{}: its default is served",
                outcome.error);
        }
    } catch (const std::bad_alloc&) {
        served.reader.StartLater();
    }
}

void DataFolder::Close() {
    isClosed_ = true;
    watcher_.Close();
    reattach_.Cancel();
    for (Served& served : served_) {
        served.settle.Cancel();
        served.reader.Close();
    }
}

DataFolder::Outcome DataFolder::Read(const ServedFile& file) const {
    try {
        std::optional<std::string> text = files_.Read(file.name, file.maxBytes);
        const bool exists = text.has_value();
        return {.publish = file.read(std::move(text)), .exists = exists, .error = {}};
    } catch (const std::bad_alloc&) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "Read"), "{}: {}", file.name, kMemoryLacks);
        throw;
    } catch (const std::exception& exception) {
        return {.publish = nullptr, .exists = true, .error = exception.what()};
    }
}

void DataFolder::OnFile(const std::string& name) {
    if (Served* const served = Find(name)) {
        served->settle.Cancel();
        served->reader.Start();
    }
}

void DataFolder::OnGone(const std::string& name) {
    if (Served* const served = Find(name)) {
        served->isReturning = false;
        served->settle.RingAfter(kSettleTime);
    }
}

void DataFolder::Settle(Served& served) {
    if (!served.isReturning && files_.Exists(served.file.name)) {
        // Half of it may be written; its end is told.
        served.isReturning = true;
        served.settle.RingAfter(kReturnTime);
    } else {
        served.reader.Start();
    }
}

DataFolder::Served* DataFolder::Find(const std::string& name) {
    const auto found = std::find_if(served_.begin(), served_.end(), [&name](const Served& served) {
        return served.file.name == name;
    });
    return found == served_.end() ? nullptr : &*found;
}

void DataFolder::OnLost() {
    for (Served& served : served_) {
        served.reader.Start();
    }
}

void DataFolder::OnFolder() {
    if (files_.IsAway() || files_.IsInPlace()) {
        return;
    }
    Log(zor::logger::kLevelError, Here(kSourceFile, "OnFolder"),
        "data folder '{}' was moved or removed: what was read last stays until it is back",
        files_.Path());
    files_.Detach();
    Reattach();
}

void DataFolder::Reattach() {
    if (isClosed_) {
        return;
    }
    try {
        if (files_.Reopen()) {
            watcher_.Watch(files_.Open()->Get());
            Log(zor::logger::kLevelInformation, Here(kSourceFile, "Reattach"),
                "data folder '{}' is back", files_.Path());
            OnLost();
            if (onBack_) {
                onBack_();
            }
            // It may have been replaced once more before it was watched.
            OnFolder();
            return;
        }
    } catch (const std::exception& exception) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "Reattach"), "{}", exception.what());
        files_.Detach();
    }
    reattach_.RingAfter(kReattachPeriod);
}

void DataFolder::OnRead(const ServedFile& file, const Outcome& outcome) {
    // A folder that went away while a file was read has taken the file along, not deleted it.
    OnFolder();
    if (files_.IsAway()) {
        return;
    }
    if (outcome.publish) {
        outcome.publish();
        Log(zor::logger::kLevelInformation, Here(kSourceFile, "OnRead"), "{}: {}", file.name,
            outcome.exists ? "read again" : "is not there, its default is served");
    } else {
        Log(zor::logger::kLevelError, Here(kSourceFile, "OnRead"),
            "{}: the last good version stays", outcome.error);
    }
}

}  // namespace zam_service
