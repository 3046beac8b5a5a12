#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zam_connector::tree_json {

/// Where a value stands in a JSON text. Places live on the stack of a recursion and refer to their
/// parents there, so that they cost nothing until an error asks for the pointer.
class Place {
public:
    /// Of the whole text.
    Place() noexcept = default;
    /// Of a member of the object at `parent`; both must outlive the place.
    Place(const Place& parent, std::string_view key) noexcept
        : parent_(&parent), isMember_(true), key_(key) {}
    /// Of an element of the array at `parent`, which must outlive the place.
    Place(const Place& parent, std::size_t index) noexcept : parent_(&parent), index_(index) {}
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place() = default;

    /// As a JSON pointer (RFC 6901).
    std::string Pointer() const;

private:
    const Place* parent_ = nullptr;
    bool isMember_ = false;
    std::string_view key_;
    std::size_t index_ = 0;
};

}  // namespace zam_connector::tree_json
