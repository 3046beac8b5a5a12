#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "shapes.h"
#include "tree_json/tree_json.h"

/// Makes libFuzzer change trees instead of letters half of the time: most changes of letters are
/// broken JSON, which the parsers of records never see.

extern "C" std::size_t LLVMFuzzerMutate(uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

class Mutator {
public:
    explicit Mutator(unsigned seed) : random_(seed) {}

    bool Flip() { return Below(2) == 0; }

    void Mutate(zuv::TValue& tree) {
        std::vector<zuv::TValue*> nodes{&tree};
        for (std::size_t index = 0; index < nodes.size(); ++index) {
            AppendChildren(*nodes[index], nodes);
        }
        zuv::TValue& node = *nodes[Below(nodes.size())];
        switch (Below(4)) {
            case 0:
                node = Scalar();
                break;
            case 1:
                node = zuv::TValue(*nodes[Below(nodes.size())]);
                break;
            default:
                MutateInside(node);
        }
    }

private:
    static void AppendChildren(zuv::TValue& node, std::vector<zuv::TValue*>& nodes) {
        if (auto* vector = node.GetIf<zuv::Vector>()) {
            for (zuv::TValue& element : *vector) {
                nodes.push_back(&element);
            }
        } else if (auto* map = node.GetIf<zuv::Map>()) {
            for (auto& entry : *map) {
                nodes.push_back(&entry.second);
            }
        }
    }

    std::size_t Below(std::size_t limit) { return random_() % limit; }

    void MutateInside(zuv::TValue& node) {
        if (auto* vector = node.GetIf<zuv::Vector>()) {
            MutateVector(*vector);
        } else if (auto* map = node.GetIf<zuv::Map>()) {
            MutateMap(*map);
        } else if (auto* text = node.GetIf<std::string>()) {
            MutateBytes(*text);
        } else if (auto* blob = node.GetIf<zuv::Blob>()) {
            MutateBytes(*blob);
        } else {
            node = Scalar();
        }
    }

    void MutateVector(zuv::Vector& vector) {
        if (vector.empty()) {
            vector.push_back(Scalar());
            return;
        }
        const std::size_t index = Below(vector.size());
        const auto at = vector.begin() + static_cast<std::ptrdiff_t>(index);
        switch (Below(3)) {
            case 0:
                vector.erase(at);
                break;
            case 1:
                vector.insert(at, zuv::TValue(vector[index]));
                break;
            default:
                std::swap(*at, vector[Below(vector.size())]);
        }
    }

    void MutateMap(zuv::Map& map) {
        if (map.empty() || Flip()) {
            map.insert_or_assign(std::string(Key()), Scalar());
            return;
        }
        const auto entry = std::next(map.begin(), static_cast<std::ptrdiff_t>(Below(map.size())));
        if (Flip()) {
            map.insert_or_assign(std::string(Key()), zuv::TValue(entry->second));
        } else {
            map.erase(entry);
        }
    }

    std::string_view Key() {
        static constexpr std::string_view kOthers[] = {
            "updeulaid",   "updeulareleasetime", "updlocinfo", "updeula",
            "static_info", "dynamic_info",       "unknown"};
        switch (Below(3)) {
            case 0:
                return KeyOf(zam_fuzz::UpdateInfoFields());
            case 1:
                return KeyOf(zam_fuzz::UpdateStatusInfoFields());
            default:
                return kOthers[Below(std::size(kOthers))];
        }
    }

    std::string_view KeyOf(const std::vector<zam_fuzz::Field>& fields) {
        return fields[Below(fields.size())].key;
    }

    template <typename Bytes>
    void MutateBytes(Bytes& bytes) {
        constexpr std::size_t kMaxGrowth = 32;
        const std::size_t size = bytes.size();
        bytes.resize(size + kMaxGrowth);
        auto* const data = reinterpret_cast<uint8_t*>(bytes.data());
        bytes.resize(LLVMFuzzerMutate(data, size, bytes.size()));
    }

    zuv::TValue Scalar() {
        switch (Below(15)) {
            case 0:
                return {};
            case 1:
                return zuv::Vector();
            case 2:
                return zuv::Map();
            case 3:
                return Flip();
            case 4:
                return Number<int>();
            case 5:
                return Number<long>();
            case 6:
                return qor::types::Timestamp(Number<long>());
            case 7:
                return std::string(Below(20), 'a');
            case 8:
                return zuv::MakeVector("one ", "two ", std::string(Below(3), '\xFF'));
            case 9:
                return Id(17);
            case 10:
                return Id(16 + Below(3));
            case 11:
                return Number<unsigned long>();
            case 12:
                return Number<short>();
            case 13:
                return Number<signed char>();
            default:
                return 0.5;
        }
    }

    template <typename T>
    T Number() {
        static constexpr T kEdges[] = {0, 1, std::numeric_limits<T>::min(),
                                       std::numeric_limits<T>::max()};
        return Flip() ? static_cast<T>(random_()) : kEdges[Below(std::size(kEdges))];
    }

    zuv::Blob Id(std::size_t size) {
        zuv::Blob blob(size);
        std::generate(blob.begin(), blob.end(),
                      [&] { return static_cast<unsigned char>(random_()); });
        blob.back() = static_cast<unsigned char>(Below(4) == 0 ? 1 : 0);
        return blob;
    }

    std::mt19937_64 random_;
};

/// The text of the changed tree; empty when there is none.
std::string MutatedText(std::string_view text, Mutator& mutator) {
    try {
        zuv::TValue tree = zam_connector::tree_json::Read(text);
        mutator.Mutate(tree);
        return zam_connector::tree_json::Write(tree);
    } catch (const zam_connector::tree_json::JsonError&) {
        return {};
    }
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
    Mutator mutator(seed);
    if (mutator.Flip()) {
        const std::string text = MutatedText({reinterpret_cast<const char*>(data), size}, mutator);
        if (!text.empty() && text.size() <= maxSize) {
            std::copy(text.begin(), text.end(), data);
            return text.size();
        }
    }
    return LLVMFuzzerMutate(data, size, maxSize);
}
