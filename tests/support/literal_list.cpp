#include "support/literal_list.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <type_traits>

#include "common/id_specification.h"
#include "zuv/error.h"
#include "zuv/for_each.h"

namespace zam_test {
namespace {

using zam_connector::common::RawZamParam;
using zam_connector::common::meta::IdSpecification;

int Code(unsigned bits) {
    return static_cast<int>(bits);
}

void PutWord(std::vector<unsigned char>& block, unsigned long word) {
    for (unsigned shift = 0; shift < 64; shift += 8) {
        block.push_back(static_cast<unsigned char>(word >> shift));
    }
}

std::vector<unsigned char> BlockOf(const zuv::TValue& value) {
    if (value.IsValueless()) {
        throw zuv::Error(Code(0x8000006aU), "[RawZamParams] Invalid value state");
    }
    return value.Visit([&value](const auto& held) {
        using T = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<T, std::string>) {
            return Block(value.Index(), held.size() + 1, held + '\0');
        } else if constexpr (std::is_same_v<T, zuv::Blob>) {
            return Block(value.Index(), held.size(), std::string(held.begin(), held.end()));
        } else if constexpr (std::is_same_v<T, zuv::Vector>) {
            return Block(value.Index(), held.size());
        } else if constexpr (std::is_same_v<T, zuv::Map> || std::is_same_v<T, zuv::None>) {
            return Block(value.Index(), 0);
        } else if constexpr (std::is_same_v<T, qor::types::Timestamp>) {
            return Block(value.Index(), static_cast<unsigned long>(held.Count()));
        } else if constexpr (std::is_same_v<T, double>) {
            unsigned long bits = 0;
            std::memcpy(&bits, &held, sizeof bits);
            return Block(value.Index(), bits);
        } else if constexpr (std::is_same_v<T, bool>) {
            return Block(value.Index(), held ? 1 : 0);
        } else {
            return Block(value.Index(), static_cast<std::make_unsigned_t<T>>(held));
        }
    });
}

zuv::Path ParsePath(const std::string& text) {
    auto [path, state] = zuv::FromString(text, IdSpecification());
    if (state != zuv::IdState::Ok) {
        throw zuv::Error(Code(0x80000046U),
                         "[RawZamParams] Str to path fail: src = '" + text +
                             "', state = " + std::to_string(static_cast<int>(state)));
    }
    return path;
}

zuv::TValue* Place(zuv::TValue& parent, const zuv::Level& level, const zuv::TValue& value) {
    if (const auto* position = std::get_if<unsigned long>(&level)) {
        auto* vector = parent.GetIf<zuv::Vector>();
        if (vector == nullptr) {
            throw zuv::WrongItem;
        }
        if (*position < vector->size()) {
            throw zuv::ItemAlreadyExists;
        }
        if (*position - vector->size() > 100'000) {
            throw std::length_error("gap");
        }
        vector->resize(*position);
        vector->push_back(value);
        return &vector->back();
    }
    auto* map = parent.GetIf<zuv::Map>();
    if (map == nullptr) {
        throw zuv::WrongItem;
    }
    const auto [entry, isNew] = map->emplace(std::get<std::string>(level), value);
    if (!isNew) {
        throw zuv::ItemAlreadyExists;
    }
    return &entry->second;
}

/// A range of map entries that cannot be read.
struct ThrowingIterator {
    using iterator_category = std::input_iterator_tag;
    using value_type = std::pair<const std::string, zuv::TValue>;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type*;
    using reference = value_type;

    bool operator==(const ThrowingIterator& other) const { return atEnd == other.atEnd; }
    bool operator!=(const ThrowingIterator& other) const { return atEnd != other.atEnd; }
    ThrowingIterator& operator++() { return *this; }
    ThrowingIterator operator++(int) { return *this; }
    value_type operator*() const { throw std::runtime_error("unreadable"); }

    bool atEnd = false;
};

}  // namespace

zuv::TValue ValuelessValue() {
    zuv::TValue value;
    try {
        value.Emplace<zuv::Map>(ThrowingIterator{}, ThrowingIterator{.atEnd = true});
    } catch (const std::runtime_error&) {
    }
    if (!value.IsValueless()) {
        throw std::logic_error("the value still has an alternative");
    }
    return value;
}

ValuelessLevel::ValuelessLevel(zuv::Level& level)
    // The index stands in the last word.
    : index_(reinterpret_cast<unsigned char*>(&level) + sizeof level - sizeof(void*)),
      before_(*index_) {
    *index_ = 0xFF;
    if (std::get_if<0>(&level) != nullptr || std::get_if<1>(&level) != nullptr) {
        throw std::logic_error("the level still has an alternative");
    }
}

ValuelessLevel::~ValuelessLevel() {
    *index_ = before_;
}

std::vector<unsigned char> Block(unsigned long index, unsigned long payload,
                                 const std::string& data) {
    std::vector<unsigned char> block;
    PutWord(block, index);
    PutWord(block, payload);
    block.insert(block.end(), data.begin(), data.end());
    return block;
}

std::pair<int, std::string> LiteralSerialize(const zuv::Path& root, const zuv::TValue& tree,
                                             std::vector<RawZamParam>& out) {
    std::vector<RawZamParam> list;
    zuv::Path path = root;
    try {
        zuv::ForEach(
            tree,
            [&list](const zuv::Path& at, const zuv::TValue& node) {
                RawZamParam record;
                record.value = BlockOf(node);
                const auto [text, state] = zuv::ToString<zuv::Path>(at, IdSpecification());
                if (state != zuv::IdState::Ok) {
                    throw zuv::Error(Code(0x80000046U),
                                     "[RawZamParams] Path to str fail: state = " +
                                         std::to_string(static_cast<int>(state)));
                }
                record.path = text;
                list.push_back(record);
                return zuv::for_each::Option::Continue;
            },
            path);
    } catch (...) {
        return zuv::ProcessException();
    }
    out.insert(out.end(), list.begin(), list.end());
    return {0, ""};
}

std::pair<int, std::string> LiteralDeserialize(const std::vector<RawZamParam>& list,
                                               zuv::Path& root, zuv::TValue& tree) {
    if (list.empty()) {
        return {Code(0x80000101U), "[RawZamParams] empty raw setting"};
    }
    try {
        zuv::TValue rebuilt;
        list.front().DeserializeValue(rebuilt);
        const std::string& rootText = list.front().path;
        const zuv::Path rootPath = ParsePath(rootText);
        std::vector<zuv::TValue*> stack{&rebuilt};
        zuv::Path previous = rootPath;
        std::string previousText = rootText;
        for (std::size_t index = 1; index < list.size(); ++index) {
            const RawZamParam& record = list[index];
            zuv::TValue value;
            record.DeserializeValue(value);
            const zuv::Path path = ParsePath(record.path);
            if (path.size() <= rootPath.size() ||
                !std::equal(rootPath.begin(), rootPath.end(), path.begin())) {
                throw zuv::Error(Code(0x80000064U), "[RawZamParams] non-rooted path: root = '" +
                                                        rootText + "', this = '" + record.path +
                                                        "'");
            }
            if (path.size() > previous.size() + 1) {
                throw zuv::Error(Code(0x80000065U), "[RawZamParams] path level jump: prev = '" +
                                                        previousText + "', this = '" + record.path +
                                                        "'");
            }
            const std::size_t depth = path.size() - rootPath.size();
            zuv::TValue* node = Place(*stack[depth - 1], path.back(), value);
            stack.resize(depth);
            stack.push_back(node);
            previous = path;
            previousText = record.path;
        }
        root = rootPath;
        tree = std::move(rebuilt);
        return {0, ""};
    } catch (...) {
        return zuv::ProcessException();
    }
}

}  // namespace zam_test
