#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "qel/export.h"
#include "qor/types/timestamp.h"

namespace zuv_sm {

/// No value.
struct None {
    friend constexpr bool operator==(None, None) noexcept { return true; }
    friend constexpr bool operator!=(None, None) noexcept { return false; }
};

}  // namespace zuv_sm

namespace zuv {

/// Which alternative a value holds. The numbers are those of the wire.
enum class Kind : std::uint8_t {
    None = 0,
    Vector = 1,
    Map = 2,
    Bool = 3,
    Int8 = 4,
    Int16 = 5,
    Int32 = 6,
    Int64 = 7,
    Double = 8,
    Timestamp = 9,
    String = 10,
    Blob = 11,
    UInt8 = 12,
    UInt16 = 13,
    UInt32 = 14,
    UInt64 = 15,
    /// No alternative: an assignment to the value failed half way.
    Valueless = 255,
};

/// Number of alternatives.
inline constexpr std::size_t kKindCount = 16;

/// Name of a kind in messages, as in "int32"; of static storage. Thread-safe.
ZAM_API const char* KindName(Kind kind) noexcept;

/// A value was asked for as what it is not; `what()` names both kinds, as in
/// "the value is of kind map, not string".
class ZAM_API BadKind : public std::bad_variant_access {
public:
    BadKind(Kind wanted, Kind actual);
    BadKind(const BadKind&) noexcept = default;
    BadKind& operator=(const BadKind&) noexcept = default;
    ~BadKind() override;

    const char* what() const noexcept override { return text_; }

private:
    char text_[64];
};

namespace aux::impl {

struct ZAM_API UValueTag;

template <typename Tag>
class TValue;

/// Storage of a value: the order of the alternatives is part of the wire format.
template <typename Value>
using Alternatives =
    std::variant<zuv_sm::None, std::vector<Value>, std::map<std::string, Value, std::less<>>, bool,
                 signed char, short, int, long, double, qor::types::Timestamp, std::string,
                 std::vector<unsigned char>, unsigned char, unsigned short, unsigned int,
                 unsigned long>;

/// Index of `T` among the alternatives of a variant; `kKindCount` when it is none of them.
template <typename T, typename Variant>
struct IndexIn;

template <typename T, typename... Types>
struct IndexIn<T, std::variant<Types...>> {
    static constexpr std::size_t Find() noexcept {
        constexpr bool kSame[] = {std::is_same_v<T, Types>...};
        std::size_t index = 0;
        while (index < sizeof...(Types) && !kSame[index]) {
            ++index;
        }
        return index;
    }
    static constexpr std::size_t value = Find();
};

/// The alternative that a value is constructed as from a `T`; `void` where there is none. Plain
/// `char`, which may or may not have a sign, and pointers other than to characters have none.
template <typename T, typename Variant, typename = void>
struct AlternativeOf {
    using Type = std::conditional_t < IndexIn<T, Variant>::value<kKindCount, T, void>;
};
template <typename T, typename Variant>
struct AlternativeOf<T, Variant,
                     std::enable_if_t<std::is_same_v<T, const char*> || std::is_same_v<T, char*> ||
                                      std::is_same_v<T, std::string_view>>> {
    using Type = std::string;
};
template <typename Variant>
struct AlternativeOf<float, Variant, void> {
    using Type = double;
};
template <typename Variant>
struct AlternativeOf<long long, Variant, void> {
    using Type = long;
};
template <typename Variant>
struct AlternativeOf<unsigned long long, Variant, void> {
    using Type = unsigned long;
};

/// One value of a tree: nothing, a scalar, a text, a blob, or a vector or map of further values.
///
/// A value owns what is below it: copies are deep, moves are cheap and never fail. A value that was
/// moved from keeps its kind; its containers and texts are empty then. No operation here recurses
/// with the depth of the tree beyond a fixed bound, so trees of any depth can be copied, compared,
/// printed and destroyed on an ordinary stack.
///
/// Several threads may read a value at once; one that changes it must be alone.
template <typename Tag>
class ZAM_API TValue {
public:
    using Storage = Alternatives<TValue>;
    using None = zuv_sm::None;
    using Vector = std::vector<TValue>;
    /// Ordered by the bytes of the keys, as unsigned numbers.
    using Map = std::map<std::string, TValue, std::less<>>;
    using Blob = std::vector<unsigned char>;
    using Timestamp = qor::types::Timestamp;

    /// Whether `T` is one of the sixteen alternatives.
    template <typename T>
    static constexpr bool kIsAlternative = IndexIn<T, Storage>::value < kKindCount;

    TValue() noexcept = default;

    /// Implicit, so that `Map{{"port", 443}, {"name", "gate"}}` reads as what it is. Takes every
    /// alternative as itself, texts as strings, `float` as double and the `long long` types as the
    /// 64-bit kinds; nothing else converts.
    template <
        typename T,
        typename Alternative = typename AlternativeOf<std::decay_t<T>, Alternatives<TValue>>::Type,
        typename = std::enable_if_t<!std::is_void_v<Alternative>>>
    TValue(T&& value) noexcept(std::is_nothrow_constructible_v<Alternative, T&&>)
        : storage_(std::in_place_type<Alternative>, std::forward<T>(value)) {}

    TValue(const TValue& other)
        : storage_(other.IsContainer() ? CopyContainer(other) : other.storage_) {}
    TValue(TValue&& other) noexcept : storage_(std::move(other.storage_)) {}

    /// On failure this value is as before.
    TValue& operator=(const TValue& other) {
        TValue copy(other);
        *this = std::move(copy);
        return *this;
    }

    /// `other` may lie inside this value.
    TValue& operator=(TValue&& other) noexcept {
        Storage taken(std::move(other.storage_));
        storage_ = std::move(taken);
        return *this;
    }

    ~TValue() {
        if (IsContainer()) {
            DestroyChildren();
        }
    }

    /// Makes this value hold a `T` constructed from the arguments, which must not lie inside it.
    /// When the construction throws, the value may be left without an alternative.
    template <typename T, typename... Arguments>
    T& Emplace(Arguments&&... arguments) {
        return storage_.template emplace<T>(std::forward<Arguments>(arguments)...);
    }

    zuv::Kind Kind() const noexcept {
        return IsValueless() ? zuv::Kind::Valueless : static_cast<zuv::Kind>(storage_.index());
    }

    /// Index of the alternative; `std::variant_npos` when there is none.
    std::size_t Index() const noexcept { return storage_.index(); }

    /// Whether a failed assignment left this value without any alternative.
    bool IsValueless() const noexcept { return storage_.valueless_by_exception(); }

    template <typename T>
    bool Is() const noexcept {
        return std::holds_alternative<T>(storage_);
    }

    /// The value as a `T`, which is one of the alternatives. Throws `BadKind` when it is of another
    /// kind. The reference is valid until the value is assigned, moved from or destroyed; a value
    /// that ends here gives its `T` away.
    template <typename T>
    const T& Get() const& {
        CheckKind<T>();
        return *std::get_if<T>(&storage_);
    }
    template <typename T>
    T& Get() & {
        CheckKind<T>();
        return *std::get_if<T>(&storage_);
    }
    template <typename T>
    T Get() && {
        CheckKind<T>();
        return std::move(*std::get_if<T>(&storage_));
    }

    /// The value as a `T`, or null when it is of another kind.
    template <typename T>
    const T* GetIf() const& noexcept {
        return std::get_if<T>(&storage_);
    }
    template <typename T>
    T* GetIf() & noexcept {
        return std::get_if<T>(&storage_);
    }
    template <typename T>
    const T* GetIf() const&& = delete;  // it would point into what ends here

    /// Calls `visitor` with a reference to the alternative held; `visitor` takes all sixteen.
    /// Throws `std::bad_variant_access` when there is none.
    template <typename Visitor>
    decltype(auto) Visit(Visitor&& visitor) const {
        return std::visit(std::forward<Visitor>(visitor), storage_);
    }
    template <typename Visitor>
    decltype(auto) Visit(Visitor&& visitor) {
        return std::visit(std::forward<Visitor>(visitor), storage_);
    }

    /// The entry of a map, or null when there is none of that key or this is no map.
    const TValue* Find(std::string_view key) const&& = delete;
    const TValue* Find(std::string_view key) const& noexcept {
        const auto* map = GetIf<Map>();
        if (map == nullptr) {
            return nullptr;
        }
        const auto found = map->find(key);
        return found == map->end() ? nullptr : &found->second;
    }

    /// Whether this is a vector or map with at least one value below it.
    bool HasChildren() const noexcept {
        const auto* vector = GetIf<Vector>();
        const auto* map = GetIf<Map>();
        return (vector != nullptr && !vector->empty()) || (map != nullptr && !map->empty());
    }

    /// The same kinds with equal values in the same places; doubles compare as numbers, so a NaN
    /// equals nothing and 0.0 equals -0.0. Two values without an alternative are equal.
    friend bool operator==(const TValue& left, const TValue& right) {
        return Compare(left, right, false);
    }
    friend bool operator!=(const TValue& left, const TValue& right) { return !(left == right); }

    /// `==`, but with doubles compared bit for bit: a NaN is identical to itself, 0.0 not to -0.0.
    bool IsIdenticalTo(const TValue& other) const { return Compare(*this, other, true); }

private:
    template <typename T>
    void CheckKind() const {
        static_assert(kIsAlternative<T>, "not one of the sixteen alternatives");
        if (!Is<T>()) {
            throw BadKind(static_cast<zuv::Kind>(IndexIn<T, Storage>::value), Kind());
        }
    }

    bool IsContainer() const noexcept {
        return storage_.index() == static_cast<std::size_t>(zuv::Kind::Vector) ||
               storage_.index() == static_cast<std::size_t>(zuv::Kind::Map);
    }

    static Storage CopyContainer(const TValue& from);
    static Storage CopyWithoutRecursion(const TValue& from);
    void DestroyChildren() noexcept;
    static void DestroyWithoutRecursion(TValue& node) noexcept;
    static bool Compare(const TValue& left, const TValue& right, bool bitwise);

    Storage storage_;
};

extern template class TValue<UValueTag>;

}  // namespace aux::impl

/// The value of every tree in this system.
using TValue = aux::impl::TValue<aux::impl::UValueTag>;
using None = TValue::None;
using Vector = TValue::Vector;
using Map = TValue::Map;
using Blob = TValue::Blob;

/// A vector of the given values. Braces alone would not do: with one element, compilers disagree
/// whether `Vector{Vector{1}}` nests or copies.
template <typename... Values>
Vector MakeVector(Values&&... values) {
    Vector vector;
    vector.reserve(sizeof...(Values));
    (vector.emplace_back(std::forward<Values>(values)), ...);
    return vector;
}

/// Bound of a text for logs and debuggers.
inline constexpr std::size_t kDefaultTextBytes = 4096;

/// The tree in one line for people, as in `{"count": int32 5, "list": [true, "a"], "raw": blob
/// 00ff}`. Beyond about `maxBytes` the rest is cut and "..." stands in its place. Not meant to be
/// read back. Thread-safe.
ZAM_API std::string ToText(const TValue& value, std::size_t maxBytes = kDefaultTextBytes);

}  // namespace zuv

namespace zuv::aux::impl {

/// Writes `ToText(value)`.
ZAM_API std::ostream& operator<<(std::ostream& out, const zuv::TValue& value);

}  // namespace zuv::aux::impl
