#include <malloc.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "allocation_counter.h"
#include "common/arena.h"
#include "common/raw_zam_param.h"
#include "common/raw_zam_param_casts.h"
#include "ping_pong.h"
#include "policy_tree.h"
#include "process.h"
#include "qx/zam_data_provider.h"
#include "suites.h"
#include "tree_peers.h"

namespace zam_bench {
namespace {

using zam_connector::common::RawZamParam;

constexpr int kRounds = 7;

struct Size {
    const char* name;
    std::size_t nodes;
    int repeats;  ///< in one round, so that a round takes some milliseconds
};

constexpr std::array<Size, 4> kSizes{
    {{"1k", 1000, 200}, {"10k", 10'000, 30}, {"100k", 100'000, 4}, {"1m", 1'000'000, 1}}};

/// Limits of a piece on its way over a channel.
constexpr std::size_t kPieceRecords = 10;
constexpr std::size_t kPieceWeight = 675'999;
constexpr std::uint32_t kPieceArenaBytes = qx_zam_connector_ZamDataProvider_GetData_response_arena;

void Require(const std::pair<int, std::string>& result) {
    if (result.first != 0) {
        throw std::runtime_error(result.second);
    }
}

std::vector<RawZamParam> Flatten(const zuv::TValue& tree) {
    std::vector<RawZamParam> list;
    Require(zam_connector::common::Serialize(zuv::Root, tree, list));
    return list;
}

zuv::TValue Rebuild(const std::vector<RawZamParam>& list) {
    zuv::Path root;
    zuv::TValue tree;
    Require(zam_connector::common::Deserialize(list, root, tree));
    return tree;
}

/// A list cut as the channels do.
std::vector<std::span<const RawZamParam>> Cut(const std::vector<RawZamParam>& list) {
    std::vector<std::span<const RawZamParam>> pieces;
    for (std::size_t begin = 0; begin < list.size();) {
        std::size_t end = begin;
        for (std::size_t weight = 0; end < list.size() && end - begin < kPieceRecords; ++end) {
            weight += zam_connector::common::WeightOf(list[end]);
            if (weight > kPieceWeight) {
                break;
            }
        }
        pieces.push_back(std::span(list).subspan(begin, end - begin));
        begin = end;
    }
    return pieces;
}

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

/// Keeps memory that was freed in the process, so that the library is measured and not the kernel's
/// handing out of zeroed pages.
void KeepHeap() {
    constexpr int kBytes = 1 << 30;
    mallopt(M_TRIM_THRESHOLD, kBytes);
    mallopt(M_MMAP_THRESHOLD, kBytes);
}

/// The C library puts off part of the work of freeing small blocks until the next large allocation,
/// which must not fall into what is measured next.
void SettleHeap() {
    constexpr std::size_t kLargeBytes = 65'536;
    const std::vector<char> large(kLargeBytes);
}

/// What is timed: `run` alone; `clear` takes down what it made.
struct Work {
    std::function<void()> run;
    std::function<void()> clear;
};

/// A process of its own for one kind of work, so that none runs on a heap that another has left in
/// pieces. `prepare` is called there.
class Subject {
public:
    Subject(std::string name, const Size& size, const std::function<Work()>& prepare)
        : name_(std::move(name)), sockets_(MakeSocketPair()), child_([&] {
              sockets_.client.Reset();
              Serve(sockets_.server.Get(), size, prepare());
          }) {
        sockets_.server.Reset();
    }

    const std::string& Name() const noexcept { return name_; }

    /// ns per node.
    double Round() {
        const char start = 'r';
        double time = 0;
        if (::write(sockets_.client.Get(), &start, 1) != 1 ||
            ::read(sockets_.client.Get(), &time, sizeof time) != sizeof time) {
            throw std::runtime_error(name_ + " ended before its time");
        }
        return time;
    }

private:
    static void Serve(int socket, const Size& size, const Work& work) {
        char start = 0;
        while (::read(socket, &start, 1) == 1) {
            double time = 0;
            for (int repeat = 0; repeat < size.repeats; ++repeat) {
                const double before = NowMicroseconds();
                work.run();
                time += NowMicroseconds() - before;
                work.clear();
                SettleHeap();
            }
            time = time * 1000 / size.repeats / static_cast<double>(size.nodes);
            if (::write(socket, &time, sizeof time) != sizeof time) {
                return;
            }
        }
    }

    std::string name_;
    SocketPair sockets_;
    Child child_;
};

/// Middle times of all, measured in turns.
std::vector<double> Measure(std::vector<std::unique_ptr<Subject>>& subjects) {
    std::vector<std::vector<double>> times(subjects.size());
    for (int round = -1; round < kRounds; ++round) {  // the first is for warming up
        for (std::size_t index = 0; index < subjects.size(); ++index) {
            const double time = subjects[index]->Round();
            if (round >= 0) {
                times[index].push_back(time);
            }
        }
    }
    std::vector<double> medians;
    for (auto& all : times) {
        medians.push_back(Median(std::move(all)));
    }
    return medians;
}

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
    const std::vector<double> medians = Measure(subjects);
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
