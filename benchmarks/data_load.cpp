#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "allocation_counter.h"
#include "data/content_hash.h"
#include "data/folder_files.h"
#include "data/provider_data.h"
#include "data/tree_file.h"
#include "policy_tree.h"
#include "subject.h"
#include "suites.h"
#include "support/temporary_folder.h"
#include "tree_json/tree_json.h"

namespace zam_bench {
namespace {

using zam_service::TreeSnapshotPtr;

constexpr Size kLarge{"1m", 1'000'000, 1};
constexpr double kNsPerSecond = 1e9;

/// A data folder with a policy, which is read as the service reads it after an edit: from the file
/// to the pieces that a pull is answered with.
class PolicyFolder {
public:
    explicit PolicyFolder(const zuv::TValue& tree)
        : files_(folder_.Path()),
          served_(zam_service::ServeTree(zam_service::kPolicyFile, [this](TreeSnapshotPtr read) {
              snapshot_ = std::move(read);
          })) {
        files_.Write(served_.name, zam_connector::tree_json::Write(tree));
        Load();
        if (snapshot_->hash != zam_service::HashOf(tree)) {
            throw std::runtime_error("the policy is not served as it is");
        }
        Clear();
    }
    PolicyFolder(const PolicyFolder&) = delete;
    PolicyFolder& operator=(const PolicyFolder&) = delete;
    ~PolicyFolder() = default;

    void Load() { served_.read(files_.Read(served_.name, served_.maxBytes))(); }
    void Clear() { snapshot_ = nullptr; }

private:
    zam_test::TemporaryFolder folder_;
    zam_service::FolderFiles files_;
    zam_service::ServedFile served_;
    TreeSnapshotPtr snapshot_;
};

/// Seconds of a load, and of a deep copy of the same tree.
std::pair<double, double> MeasureSeconds(const zuv::TValue& tree, PolicyFolder& folder) {
    zuv::TValue copy;
    std::vector<std::unique_ptr<Subject>> subjects;
    subjects.push_back(std::make_unique<Subject>("data.load", kLarge, [&] {
        return Work{[&] { folder.Load(); }, [&] { folder.Clear(); }};
    }));
    subjects.push_back(std::make_unique<Subject>("copy", kLarge, [&] {
        return Work{[&] { copy = tree; }, [&copy] { copy = {}; }};
    }));
    const std::vector<double> medians = MeasureInTurns(subjects);
    const auto seconds = [](double nsPerNode) {
        return nsPerNode * static_cast<double>(kLarge.nodes) / kNsPerSecond;
    };
    return {seconds(medians[0]), seconds(medians[1])};
}

/// Heap that a load needs at its peak, with the text and what is served in the end.
double PeakBytes(PolicyFolder& folder) {
    const AllocationWatch watch;
    folder.Load();
    return static_cast<double>(watch.PeakBytes());
}

}  // namespace

void MeasureLoads(Report& report) {
    KeepHeap();
    const zuv::TValue tree = MakePolicyTree(kLarge.nodes);
    PolicyFolder folder(tree);
    const auto [load, copy] = MeasureSeconds(tree, folder);
    report.Add({"data.load", "1m.seconds", "s", load, copy});
    const double peak = MeasureApart([&folder] { return PeakBytes(folder); });
    report.Add({"data.load",
                "1m.peak_bytes_per_node",
                "B/node",
                peak / static_cast<double>(kLarge.nodes),
                {}});
}

}  // namespace zam_bench
