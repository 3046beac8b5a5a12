#include "memory_ping_pong.h"

#include <sys/mman.h>

#include <new>
#include <stdexcept>

namespace zam_bench {

/// A cache line for each side: the kernel's pages begin with one.
struct MemoryPeer::Page {
    alignas(64) std::atomic<std::uint32_t> ping{0};
    alignas(64) std::atomic<std::uint32_t> pong{0};
};

namespace {

void AwaitNumber(const std::atomic<std::uint32_t>& place, std::uint32_t number) noexcept {
    while (place.load(std::memory_order_acquire) != number) {
#if defined(__x86_64__)
        __builtin_ia32_pause();
#endif
    }
}

void* Map(std::size_t bytes) {
    void* const page =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        throw std::runtime_error("no shared memory");
    }
    return page;
}

}  // namespace

MemoryPeer::MemoryPeer()
    : page_(new (Map(sizeof(Page))) Page), sockets_(MakeSocketPair()), child_([this] {
          sockets_.client.Reset();
          Serve(sockets_.server.Get(), *page_);
      }) {
    sockets_.server.Reset();
}

MemoryPeer::~MemoryPeer() {
    ::munmap(page_, sizeof(Page));
}

void MemoryPeer::Serve(int socket, Page& page) {
    std::uint32_t pings = 0;
    std::uint32_t number = 0;
    while (ReceiveAll(socket, reinterpret_cast<unsigned char*>(&pings), sizeof(pings))) {
        for (const std::uint32_t last = number + pings; number != last;) {
            AwaitNumber(page.ping, ++number);
            page.pong.store(number, std::memory_order_release);
        }
    }
}

void MemoryPeer::Begin(std::uint32_t pings) {
    if (!SendAll(sockets_.client.Get(), reinterpret_cast<const unsigned char*>(&pings),
                 sizeof(pings))) {
        throw std::runtime_error("the peer in memory is gone");
    }
}

void MemoryPeer::Ping() noexcept {
    page_->ping.store(++number_, std::memory_order_release);
    AwaitNumber(page_->pong, number_);
}

}  // namespace zam_bench
