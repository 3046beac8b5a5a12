#include "data/tree_bounds.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>

#include "common/raw_zam_param.h"
#include "zam_platform/posix_error.h"

namespace zam_service {
namespace {

[[noreturn]] void Fail(const std::string& name, std::string_view what, std::size_t limit) {
    throw zam_platform::PlatformError(
        zam_platform::kStatusRequestTooLarge,
        fmt::format("{}: has more than the {} {} allowed", name, limit, what));
}

/// Where a text or comment that begins at `from` ends; a text that is no JSON is another's affair.
std::size_t EndOf(std::string_view text, std::size_t from) {
    const std::string_view rest = text.substr(from);
    if (rest.front() == '"') {
        std::size_t end = 1;
        while (end < rest.size() && rest[end] != '"') {
            end += rest[end] == '\\' ? 2U : 1U;
        }
        return from + end;
    }
    const bool isLine = rest.substr(0, 2) == "//";
    const std::size_t end = isLine                      ? rest.find('\n')
                            : rest.substr(0, 2) == "/*" ? rest.find("*/", 2) + 1
                                                        : 0;
    return end == std::string_view::npos ? text.size() : from + end;
}

/// Levels of the tree are at most as many as its reader takes, so that recursion is bounded.
class Walk {
public:
    Walk(const std::string& name, const TreeBounds& bounds) : name_(name), bounds_(bounds) {}

    void Node(const zuv::TValue& node, std::size_t pathBytes) {
        if (++nodes_ > bounds_.nodes) {
            Fail(name_, "nodes", bounds_.nodes);
        }
        Add(zam_connector::common::kValueHeaderBytes + pathBytes);
        switch (node.Kind()) {
            case zuv::Kind::String:
                Add(node.Get<std::string>().size() + 1);
                break;
            case zuv::Kind::Blob:
                Add(node.Get<zuv::Blob>().size());
                break;
            case zuv::Kind::Vector:
                Elements(node.Get<zuv::Vector>(), pathBytes);
                break;
            case zuv::Kind::Map:
                for (const auto& [key, value] : node.Get<zuv::Map>()) {
                    Node(value, pathBytes + key.size() + 1);
                }
                break;
            default:
                break;
        }
    }

private:
    void Elements(const zuv::Vector& vector, std::size_t pathBytes) {
        std::size_t digits = 1;
        std::size_t next = 10;  // the first position with a digit more
        for (std::size_t index = 0; index < vector.size(); ++index) {
            if (index == next) {
                ++digits;
                next *= 10;
            }
            Node(vector[index], pathBytes + digits + 1);
        }
    }

    void Add(std::size_t bytes) {
        bytes_ += bytes;
        if (bytes_ > bounds_.bytes) {
            Fail(name_, "bytes of values and paths", bounds_.bytes);
        }
    }

    const std::string& name_;
    const TreeBounds& bounds_;
    std::size_t nodes_ = 0;
    std::size_t bytes_ = 0;
};

}  // namespace

void CheckTextBounds(const std::string& name, std::string_view text, const TreeBounds& bounds) {
    // Before each value but the root stands a comma or the bracket that opens its container.
    std::size_t values = 1;
    for (std::size_t index = 0; index < text.size(); ++index) {
        const char character = text[index];
        if (character == '"' || character == '/') {
            index = EndOf(text, index);
        } else if (character == ',' || character == '[' || character == '{') {
            ++values;
        }
    }
    // An object that stands for a scalar has a value in it.
    if (values / 2 > bounds.nodes) {
        Fail(name, "nodes", bounds.nodes);
    }
}

void CheckTreeBounds(const std::string& name, const zuv::TValue& tree, const TreeBounds& bounds) {
    Walk(name, bounds).Node(tree, 0);
}

}  // namespace zam_service
