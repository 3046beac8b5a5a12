#include "data/content_hash.h"

#include <xxhash.h>

#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <variant>

#include "zuv/for_each.h"
#include "zuv/path.h"

namespace zam_service {
namespace {

XXH3_state_t* State(const auto& state) noexcept {
    return static_cast<XXH3_state_t*>(state.get());
}

template <typename T>
std::uint64_t Bits(const T& value) noexcept {
    if constexpr (std::is_same_v<T, double>) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        return bits;
    } else if constexpr (std::is_same_v<T, qor::types::Timestamp>) {
        return static_cast<std::uint64_t>(value.Count());
    } else {
        return static_cast<std::uint64_t>(value);
    }
}

/// Adds the content of a node, without what is below it.
class ContentAdder {
public:
    explicit ContentAdder(ContentHash& hash) : hash_(hash) {}

    void operator()(const zuv::None& /*none*/) const noexcept {}
    void operator()(const zuv::Vector& vector) const noexcept { hash_.AddNumber(vector.size()); }
    void operator()(const zuv::Map& map) const noexcept { hash_.AddNumber(map.size()); }
    void operator()(const std::string& text) const noexcept { hash_.AddBytes(text); }
    void operator()(const zuv::Blob& blob) const noexcept {
        hash_.AddBytes({reinterpret_cast<const char*>(blob.data()), blob.size()});
    }
    template <typename Scalar>
    void operator()(const Scalar& scalar) const noexcept {
        hash_.AddNumber(Bits(scalar));
    }

private:
    ContentHash& hash_;
};

}  // namespace

void ContentHash::Free::operator()(void* state) const noexcept {
    XXH3_freeState(static_cast<XXH3_state_t*>(state));
}

ContentHash::ContentHash() : state_(XXH3_createState()) {
    if (state_ == nullptr) {
        throw std::bad_alloc();
    }
    XXH3_64bits_reset(State(state_));
}

void ContentHash::AddBytes(std::string_view bytes) noexcept {
    AddNumber(bytes.size());
    XXH3_64bits_update(State(state_), bytes.data(), bytes.size());
}

void ContentHash::AddNumber(std::uint64_t number) noexcept {
    XXH3_64bits_update(State(state_), &number, sizeof number);
}

std::uint64_t ContentHash::Value() const noexcept {
    const std::uint64_t hash = XXH3_64bits_digest(State(state_));
    return hash == kAbsentHash ? 1 : hash;
}

std::uint64_t HashOf(const zuv::TValue& tree) {
    ContentHash hash;
    zuv::Path path;
    zuv::ForEach(
        tree,
        [&hash](const zuv::Path& at, const zuv::TValue& node) {
            // Depth and last step of every node, in this order, tell the places of all.
            hash.AddNumber(at.size());
            if (!at.empty()) {
                if (const auto* const key = std::get_if<std::string>(&at.back())) {
                    hash.AddBytes(*key);
                } else {
                    hash.AddNumber(std::get<unsigned long>(at.back()));
                }
            }
            hash.AddNumber(static_cast<std::uint64_t>(node.Kind()));
            if (!node.IsValueless()) {
                node.Visit(ContentAdder(hash));
            }
            return zuv::for_each::Option::Continue;
        },
        path);
    return hash.Value();
}

}  // namespace zam_service
