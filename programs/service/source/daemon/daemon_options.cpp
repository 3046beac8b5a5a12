#include "daemon/daemon_options.h"

#include <grp.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstdint>
#include <ostream>

#include "zam_platform/runtime_directory.h"
#include "zam_platform/spin_setting.h"

namespace zam_service {
namespace {

constexpr char kVersion[] = "zam_connectord " ZAM_VERSION;

/// Refuses a group that does not exist, with what to do about it.
gid_t GroupNamed(const std::string& name) {
    std::array<char, 16384> buffer{};  // the members' names go here too
    group entry{};
    group* found = nullptr;
    if (::getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
        found == nullptr) {
        throw CLI::ValidationError(
            "--group", "there is no group '" + name + "'; 'getent group' lists those there are");
    }
    return found->gr_gid;
}

}  // namespace

std::optional<DaemonOptions> ParseOptions(int argc, const char* const* argv, std::ostream& out,
                                          std::ostream& err, int& status) {
    DaemonOptions options;
    std::string groupName;
    std::optional<std::int64_t> spin;
    CLI::App app(
        "Host connector service: serves the connector's endpoints out of a folder of "
        "files.",
        "zam_connectord");
    app.set_version_flag("--version", kVersion);
    auto* const data =
        app.add_option("--data", options.dataFolder,
                       "Folder to serve; without it, the built-in sample in a private folder")
            ->type_name("DIR");
    app.add_option("--init", options.initFolder,
                   "Write a sample folder with comments to DIR, and exit")
        ->type_name("DIR")
        ->excludes(data);
    app.add_option("--runtime-dir", options.runtimeDirectory,
                   "Directory for the socket; default: $ZAM_RUNTIME_DIR, else "
                   "$XDG_RUNTIME_DIR/zam_connector, else /run/zam_connector")
        ->type_name("DIR");
    app.add_option("--group", groupName, "Serve members of this group too")->type_name("NAME");
    app.add_option("--spin", spin,
                   "Longest look for a client's next call in shared memory, in microseconds, 0 to "
                   "50; 0: calls come through sockets alone; default: $ZAM_SPIN, else 50")
        ->type_name("US")
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{zam_platform::kMaxSpin.count()}));
    app.add_option("--ready-fd", options.readyFd,
                   "Write a newline to this descriptor when calls are accepted, and close it")
        ->type_name("N")
        ->check(CLI::Range(0, 1 << 20));
    try {
        app.parse(argc, argv);
        for (const CLI::Option* const option : app.get_options()) {
            if (option->count() != 0 && option->as<std::string>().empty()) {
                throw CLI::ValidationError(option->get_name(), "needs a value that is not empty");
            }
        }
        if (!groupName.empty()) {
            options.group = GroupNamed(groupName);
        }
    } catch (const CLI::Success& wanted) {
        status = app.exit(wanted, out, err);
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        err << "zam_connectord: " << error.what()
            << "\nRun zam_connectord --help for the options.\n";
        status = kExitUsage;
        return std::nullopt;
    }
    if (spin) {
        options.spin = std::chrono::microseconds(*spin);
    }
    if (options.runtimeDirectory.empty()) {
        options.runtimeDirectory = zam_platform::RuntimeDirectoryPath();
    }
    return options;
}

}  // namespace zam_service
