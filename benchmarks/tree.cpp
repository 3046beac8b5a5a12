#include <array>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "allocation_counter.h"
#include "common/arena.h"
#include "common/raw_zam_param_casts.h"
#include "param_list.h"
#include "policy_tree.h"
#include "qx/zam_data_provider.h"
#include "subject.h"
#include "suites.h"
#include "tree_peers.h"

namespace zam_bench {
namespace {

using zam_connector::common::RawZamParam;

constexpr std::array<Size, 4> kSizes{
    {{"1k", 1000, 200}, {"10k", 10'000, 30}, {"100k", 100'000, 4}, {"1m", 1'000'000, 1}}};

constexpr std::uint32_t kPieceArenaBytes = qx_zam_connector_ZamDataProvider_GetData_response_arena;

/// Sends a list through an arena, piece by piece, and collects it behind.
class PieceCarrier {
public:
    std::vector<RawZamParam> Carry(const std::vector<RawZamParam>& list) {
        std::vector<RawZamParam> received;
        bytes_ = 0;
        for (const auto piece : Cut(list)) {
            vd_arena_reset(arena_.Get());
            const auto sent = zam_connector::common::CastToVd(piece, arena_.Get());
            zam_connector::common::AppendFromVd(sent, arena_.Get(), received);
            bytes_ += arena_.Get()->used;
        }
        return received;
    }

    /// Of all pieces of the list carried last.
    std::size_t Bytes() const noexcept { return bytes_; }

private:
    zam_connector::common::StackArena<kPieceArenaBytes> arena_;
    std::size_t bytes_ = 0;
};

/// Heap that rebuilding needs at its peak beyond the tree that comes of it.
double ExtraBytes(const std::vector<RawZamParam>& list) {
    const AllocationWatch watch;
    const zuv::TValue tree = Rebuild(list);
    return static_cast<double>(watch.PeakBytes() - watch.Bytes());
}

std::vector<std::unique_ptr<Subject>> MakeSubjects(const Size& size, const zuv::TValue& tree,
                                                   const std::vector<RawZamParam>& list) {
    std::vector<std::unique_ptr<Subject>> subjects;
    const auto add = [&](const std::string& name, const std::function<Work()>& prepare) {
        subjects.push_back(std::make_unique<Subject>(name, size, prepare));
    };
    zuv::TValue copy;
    std::vector<RawZamParam> records;
    const auto clearCopy = [&copy] { copy = {}; };
    const auto clearRecords = [&records] { records = {}; };
    const auto carrier = std::make_unique<PieceCarrier>();
    add("copy", [&] { return Work{[&] { copy = tree; }, clearCopy}; });
    add("tree.serialize", [&] { return Work{[&] { records = Flatten(tree); }, clearRecords}; });
    add("tree.deserialize", [&] { return Work{[&] { copy = Rebuild(list); }, clearCopy}; });
    add("tree.piece", [&] { return Work{[&] { records = carrier->Carry(list); }, clearRecords}; });
    for (const auto& peer : MakeTreePeers()) {
        const std::string name = std::string("peer.") + peer->Name();
        add(name + ".encode", [&] {
            peer->Load(tree);
            return Work{[&] { peer->Encode(); }, [] {}};
        });
        add(name + ".decode", [&] {
            peer->Load(tree);
            peer->Encode();
            return Work{[&] { peer->Decode(); }, [&] { peer->Clear(); }};
        });
    }
    return subjects;
}

void ReportBytes(Report& report, const Size& size, const zuv::TValue& tree,
                 const std::vector<RawZamParam>& list) {
    const std::string metric = std::string(size.name) + ".bytes";
    const auto add = [&](const std::string& name, std::size_t bytes) {
        report.Add({name,
                    metric,
                    "B/node",
                    static_cast<double>(bytes) / static_cast<double>(size.nodes),
                    {}});
    };
    const auto carrier = std::make_unique<PieceCarrier>();
    carrier->Carry(list);
    add("tree.piece", carrier->Bytes());
    for (const auto& peer : MakeTreePeers()) {
        peer->Load(tree);
        peer->Encode();
        add(std::string("peer.") + peer->Name(), peer->EncodedBytes());
    }
}

void MeasureSize(Report& report, const Size& size) {
    const zuv::TValue tree = MakePolicyTree(size.nodes);
    const std::vector<RawZamParam> list = Flatten(tree);
    if (list.size() != size.nodes || Rebuild(list) != tree) {
        throw std::runtime_error("the tree does not come back as it was");
    }
    auto subjects = MakeSubjects(size, tree, list);
    const std::vector<double> medians = MeasureInTurns(subjects);
    for (std::size_t index = 1; index < subjects.size(); ++index) {
        report.Add({subjects[index]->Name(), size.name, "ns/node", medians[index], medians[0]});
    }
    const double listCost = medians[1] + medians[2];
    report.Add(
        {"tree.piece", std::string(size.name) + ".of_list", "ns/node", medians[3], listCost});
    report.Add({"tree.deserialize",
                std::string(size.name) + ".extra_memory",
                "KiB",
                ExtraBytes(list) / 1024,
                {}});
    subjects.clear();
    ReportBytes(report, size, tree, list);
}

}  // namespace

void MeasureTrees(Report& report) {
    KeepHeap();
    for (const Size& size : kSizes) {
        MeasureSize(report, size);
    }
}

}  // namespace zam_bench
