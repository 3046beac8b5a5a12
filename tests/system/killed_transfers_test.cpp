#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "data_fixture.h"
#include "history.h"
#include "process_measures.h"
#include "zam_connector/zam_converter.h"

namespace zam_connector::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;

/// Uploads of one kind, each of several pieces in which its number stands everywhere.
struct Uploader {
    const char* name;
    int (*send)(IProductDataHolder& holder, long number, unsigned long& hash);
    zuv::TValue (*tree)(long number);

    long confirmed = 0;  ///< 0: none
    long attempted = 0;
    unsigned long hash = 0;  ///< of the one confirmed last

    /// Uploads until one fails.
    void Run(IProductDataHolder& holder) {
        for (;;) {
            ++attempted;
            unsigned long told = 0;
            if (send(holder, attempted, told) != 0) {
                EXPECT_EQ(told, 0U) << "a hash of what was not confirmed";
                return;
            }
            confirmed = attempted;
            hash = told;
        }
    }
};

ZamProductSettings Settings(long number) {
    zuv::Map map;
    for (int entry = 0; entry < 60; ++entry) {
        map["key" + std::to_string(entry)] = number;
    }
    return {map};
}

std::vector<AppEula> Eulas(long number) {
    std::vector<AppEula> eulas(20);
    for (AppEula& eula : eulas) {
        eula.releaseTime = qor::types::Timestamp(number);
        eula.text = std::string(1000, static_cast<char>('a' + number % 26));
    }
    return eulas;
}

class KilledService : public ServiceDataTest {
protected:
    /// What stands in the folder is the upload confirmed last, or the one that was under way.
    void ExpectWhole(Uploader& uploader) {
        const std::string text =
            service_.ReadData("uploads/" + std::string(uploader.name) + ".json");
        if (text.empty()) {
            EXPECT_EQ(uploader.confirmed, 0) << "a confirmed upload is not there";
            return;
        }
        const zuv::TValue stored = tree_json::Read(text, uploader.name);  // throws when it is torn
        if (uploader.confirmed != uploader.attempted &&
            stored.IsIdenticalTo(uploader.tree(uploader.attempted))) {
            ++newer_;
            uploader.confirmed = uploader.attempted;
            uploader.hash = 0;  // nobody was told
            return;
        }
        EXPECT_TRUE(stored.IsIdenticalTo(uploader.tree(uploader.confirmed)))
            << uploader.name << ": neither " << uploader.confirmed << " nor " << uploader.attempted;
    }

    /// Each confirmed upload has its line.
    void ExpectInHistory(const Uploader& uploader) const {
        if (uploader.hash == 0) {
            return;
        }
        std::vector<std::string> hashes;
        for (const nlohmann::json& line : HistoryOf(service_, "upload")) {
            if (line.at("upload") == uploader.name) {
                hashes.push_back(line.at("hash"));
            }
        }
        EXPECT_THAT(hashes, Contains(fmt::format("{:#018x}", uploader.hash)));
    }

    int newer_ = 0;  ///< uploads that were stored and not confirmed any more
};

TEST_F(KilledService, LeavesEveryUploadWholeOldOrNew) {
    const int rounds = IsFullSize() ? 200 : 12;
    Uploader uploaders[] = {
        {"settings",
         [](IProductDataHolder& holder, long number, unsigned long& hash) {
             return holder.SetSettings(Settings(number), hash);
         },
         [](long number) { return Settings(number).tree; }},
        {"eulas",
         [](IProductDataHolder& holder, long number, unsigned long& hash) {
             return holder.SetAppEulas(Eulas(number), hash);
         },
         [](long number) { return *zam_converter::ConvertEulas(Eulas(number), 32768); }},
    };
    std::mt19937 random(20261121);
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE(round);
        StartService();
        std::vector<std::thread> threads;
        for (Uploader& uploader : uploaders) {
            threads.emplace_back([&] { uploader.Run(Holder()); });
        }
        // Some uploads take a few milliseconds; the point of the kill is anywhere in them.
        const auto end =
            std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 40'000);
        while (std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        service_.Kill();
        for (std::thread& thread : threads) {
            thread.join();
        }
        service_.Start();
        for (Uploader& uploader : uploaders) {
            ExpectWhole(uploader);
            ExpectInHistory(uploader);
        }
        std::error_code noneYet;  // a kill may come before the first upload
        for (const fs::directory_entry& entry :
             fs::directory_iterator(service_.DataDirectory() + "/uploads", noneYet)) {
            EXPECT_NE(entry.path().filename().string().front(), '.') << "left unfinished";
        }
        service_.Kill();
    }
    for (const Uploader& uploader : uploaders) {
        EXPECT_GT(uploader.confirmed, rounds / 2) << "the kills came too early to tell";
        RecordProperty(uploader.name, std::to_string(uploader.confirmed));
    }
    RecordProperty("stored_and_not_confirmed", newer_);
}

/// The test's client in a process of its own, which is killed with the object.
class UnfinishedClient {
public:
    explicit UnfinishedClient(int pieces) {
        std::array<int, 2> told{};
        EXPECT_EQ(::pipe2(told.data(), O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, told[1], STDOUT_FILENO);
        std::string program = ZAM_UNFINISHED_CLIENT;
        std::string count = std::to_string(pieces);
        char* const arguments[] = {program.data(), count.data(), nullptr};
        EXPECT_EQ(::posix_spawn(&process_, program.c_str(), &actions, nullptr, arguments, environ),
                  0);
        posix_spawn_file_actions_destroy(&actions);
        ::close(told[1]);
        char word = 0;
        EXPECT_EQ(::read(told[0], &word, 1), 1);
        ::close(told[0]);
        isUnderWay_ = word == '1';
    }
    UnfinishedClient(const UnfinishedClient&) = delete;
    UnfinishedClient& operator=(const UnfinishedClient&) = delete;
    ~UnfinishedClient() {
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            ::waitpid(process_, nullptr, 0);
        }
    }

    /// Whether all of its transfers had begun.
    bool IsUnderWay() const noexcept { return isUnderWay_; }

private:
    pid_t process_ = 0;
    bool isUnderWay_ = false;
};

class KilledClient : public ServiceDataTest {
protected:
    /// Sessions that ended with uploads under way.
    std::size_t Ended() const {
        const std::string log = service_.Log();
        std::size_t count = 0;
        constexpr char kText[] = "2 upload channels ended with their client";
        for (auto at = log.find(kText); at != std::string::npos; at = log.find(kText, at + 1)) {
            ++count;
        }
        return count;
    }

    /// Memory of the service that stands in RAM, in MiB.
    std::size_t ResidentMiB() const {
        std::ifstream status("/proc/" + std::to_string(service_.Pid()) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("VmRSS:", 0) == 0) {
                return std::stoul(line.substr(6)) / 1024;
            }
        }
        ADD_FAILURE() << "no VmRSS";
        return 0;
    }
};

TEST_F(KilledClient, LeavesNoChannelAndNoFile) {
    StartLoud();
    {
        const UnfinishedClient client(1);
        EXPECT_TRUE(client.IsUnderWay());
    }
    EXPECT_TRUE(Eventually([this] {
        return Ended() == 1 && ServiceLogged("1 updates status channels ended with their client");
    }));
    EXPECT_FALSE(fs::exists(service_.DataDirectory() + "/uploads"));
}

TEST_F(KilledClient, LeavesNoMemory) {
    // Two of them fit into what a user's uploads may have at once, and three do not.
    constexpr int kPieces = 340;
    constexpr int kClients = 3;
    constexpr std::size_t kPieceMiB = 1;  // in the service, about
    StartLoud();
    const std::size_t before = ResidentMiB();
    for (int number = 1; number <= kClients; ++number) {
        {
            const UnfinishedClient client(kPieces);
            EXPECT_TRUE(client.IsUnderWay()) << "client " << number;
        }
        EXPECT_TRUE(Eventually([&] { return Ended() == static_cast<std::size_t>(number); }));
    }
    if (kHasMemoryOfItsOwn) {
        EXPECT_LT(ResidentMiB(), before + kPieces * kPieceMiB / 2);
    }
}

}  // namespace
}  // namespace zam_connector::test
