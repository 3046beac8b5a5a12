#pragma once

#include <array>
#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace zam_platform {

/// Room for one handler that waits in the loop, so that waiting takes no memory: what has begun can
/// go on, and end in order, when there is none. It holds one handler at a time, which must be gone
/// before the room; the loop lets go of the room before it calls the handler.
class HandlerRoom {
public:
    HandlerRoom() = default;
    HandlerRoom(const HandlerRoom&) = delete;
    HandlerRoom& operator=(const HandlerRoom&) = delete;

    void* Take(std::size_t bytes) {
        if (isTaken_ || bytes > bytes_.size()) {
            return ::operator new(bytes);
        }
        isTaken_ = true;
        return bytes_.data();
    }

    void Give(void* bytes) noexcept {
        if (bytes == bytes_.data()) {
            isTaken_ = false;
        } else {
            ::operator delete(bytes);
        }
    }

private:
    /// What Asio adds to a handler stays below 200 bytes.
    alignas(std::max_align_t) std::array<std::byte, 384> bytes_;
    bool isTaken_ = false;
};

/// Gives a handler its place in a room, by the way that Asio asks for it.
template <typename T>
class RoomAllocator {
public:
    using value_type = T;

    explicit RoomAllocator(HandlerRoom& room) noexcept : room_(&room) {}
    template <typename U>
    RoomAllocator(const RoomAllocator<U>& other) noexcept : room_(other.room_) {}

    T* allocate(std::size_t count) { return static_cast<T*>(room_->Take(count * sizeof(T))); }
    void deallocate(T* place, std::size_t /*count*/) noexcept { room_->Give(place); }

    friend bool operator==(const RoomAllocator& left, const RoomAllocator& right) noexcept {
        return left.room_ == right.room_;
    }
    friend bool operator!=(const RoomAllocator& left, const RoomAllocator& right) noexcept {
        return !(left == right);
    }

private:
    template <typename U>
    friend class RoomAllocator;

    HandlerRoom* room_;
};

/// A handler that waits in a room.
template <typename Handler>
class RoomedHandler {
public:
    using allocator_type = RoomAllocator<Handler>;

    RoomedHandler(HandlerRoom& room, Handler handler)
        : room_(&room), handler_(std::move(handler)) {}

    allocator_type get_allocator() const noexcept { return allocator_type(*room_); }

    template <typename... Arguments>
    void operator()(Arguments&&... arguments) {
        handler_(std::forward<Arguments>(arguments)...);
    }

private:
    HandlerRoom* room_;
    Handler handler_;
};

/// `handler`, to wait in `room`, which must outlive it.
template <typename Handler>
RoomedHandler<std::decay_t<Handler>> InRoom(HandlerRoom& room, Handler&& handler) {
    return {room, std::forward<Handler>(handler)};
}

}  // namespace zam_platform
