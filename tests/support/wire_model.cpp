#include "support/wire_model.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace zam_test {
namespace {

constexpr std::size_t kHeadBytes = 32;
constexpr std::size_t kMessageHeaderBytes = 24;
constexpr std::uint32_t kMostFixedBytes = 4096;
constexpr std::uint32_t kMostArenaBytes = 1048576;

constexpr std::uint32_t kRequestSlotBytes = 16384;

enum Kind : std::uint16_t {
    kHello = 1,
    kLookup,
    kLookupAnswer,
    kCall,
    kAnswer,
    kRefusal,
    kMemoryRequest,
    kMemoryAnswer,
    kLook
};

constexpr std::uint32_t kFailedTransferFlag = 1;
constexpr std::uint32_t kHintFlags = 0xFFFFFF00U;

static_assert(std::endian::native == std::endian::little);

template <typename Number>
Number At(const unsigned char* bytes) {
    Number number;
    std::memcpy(&number, bytes, sizeof(number));
    return number;
}

template <typename Number>
void Put(unsigned char* bytes, Number number) {
    std::memcpy(bytes, &number, sizeof(number));
}

std::uint32_t FlagsOf(std::uint16_t kind) {
    if (kind == kCall) {
        return kFailedTransferFlag | kHintFlags;
    }
    return kind == kMemoryRequest ? kHintFlags : 0;
}

/// What bytes take in a slot.
std::size_t InSlot(std::size_t bytes) {
    return (bytes + 7) / 8 * 8;
}

/// What is wrong with a prelude whoever reads it; empty for nothing.
enum class Fault { None, Version, Other };

Fault FaultOf(const unsigned char* head) {
    if (std::memcmp(head, "ZAMF", 4) != 0) {
        return Fault::Other;
    }
    if (At<std::uint16_t>(head + 4) != 1) {
        return Fault::Version;
    }
    const WireHead read = WireHeadAt(head);
    const bool isSound = read.kind >= kHello && read.kind <= kLook &&
                         read.fixedBytes <= kMostFixedBytes && read.arenaBytes <= kMostArenaBytes &&
                         (read.flags & ~FlagsOf(read.kind)) == 0;
    return isSound ? Fault::None : Fault::Other;
}

}  // namespace

WireBytes WireFrame(WireHead head, const WireBytes& fixed, const WireBytes& arena) {
    std::array<unsigned char, kHeadBytes> bytes{'Z', 'A', 'M', 'F', 1};
    Put(&bytes[6], head.kind);
    Put(&bytes[8], head.callNumber);
    Put(&bytes[16], static_cast<std::uint32_t>(fixed.size()));
    Put(&bytes[20], static_cast<std::uint32_t>(arena.size()));
    Put(&bytes[24], head.status);
    Put(&bytes[28], head.flags);
    WireBytes frame;
    frame.reserve(bytes.size() + fixed.size() + arena.size());
    frame.insert(frame.end(), bytes.begin(), bytes.end());
    frame.insert(frame.end(), fixed.begin(), fixed.end());
    frame.insert(frame.end(), arena.begin(), arena.end());
    return frame;
}

WireBytes WireMessage(std::uint16_t riid, std::uint16_t operation, std::uint32_t bytes) {
    WireBytes message(bytes);
    Put(&message[0], riid);
    Put(&message[2], operation);
    Put(&message[4], bytes);
    return message;
}

WireHead WireHeadAt(const unsigned char* head) {
    return {.kind = At<std::uint16_t>(head + 6),
            .callNumber = At<std::uint64_t>(head + 8),
            .fixedBytes = At<std::uint32_t>(head + 16),
            .arenaBytes = At<std::uint32_t>(head + 20),
            .status = At<std::int32_t>(head + 24),
            .flags = At<std::uint32_t>(head + 28)};
}

std::optional<std::int32_t> WireConnection::Refusal(const WireBytes& bytes) const {
    const Fault fault = FaultOf(bytes.data());
    if (fault != Fault::None) {
        return fault == Fault::Version ? kWireVersion : kWireBadRequest;
    }
    const WireHead head = WireHeadAt(bytes.data());
    bool isSound = head.status == 0 && (head.kind == kHello) != isGreeted_;
    if (head.kind == kHello) {
        isSound = isSound && head.fixedBytes == 16 && head.arenaBytes == 0;
    } else if (head.kind == kLookup) {
        isSound = isSound && head.fixedBytes >= 1 && head.fixedBytes <= 256 && head.arenaBytes == 0;
    } else if (head.kind == kCall) {
        isSound = isSound && !BreaksARuleOfCalls(head, bytes);
    } else if (head.kind == kMemoryRequest) {
        isSound = isSound && offersMemory_ && head.fixedBytes == 0 && head.arenaBytes == 0 &&
                  !isCalled_ && !hasMemory_;
    } else if (head.kind == kLook) {
        isSound = isSound && hasAgreed_ && head.fixedBytes == 0 && head.arenaBytes == 0;
    } else {
        isSound = false;
    }
    return isSound ? std::nullopt : std::optional(kWireBadRequest);
}

bool WireConnection::BreaksARuleOfCalls(const WireHead& head, const WireBytes& bytes) const {
    if (isCalled_ || head.fixedBytes < kMessageHeaderBytes ||
        (!hasAgreed_ && (head.flags & kHintFlags) != 0)) {
        return true;
    }
    if (bytes.size() < kHeadBytes + kMessageHeaderBytes) {
        return false;
    }
    const unsigned char* const message = bytes.data() + kHeadBytes;
    const std::uint64_t operation = At<std::uint16_t>(message + 2);
    for (const WireEndpoint& endpoint : endpoints_) {
        if (endpoint.riid == At<std::uint16_t>(message) && operation < endpoint.operations.size()) {
            const WireOperation& rule = endpoint.operations[operation];
            return head.fixedBytes != rule.requestBytes ||
                   At<std::uint32_t>(message + 4) != rule.requestBytes ||
                   head.arenaBytes > rule.requestArenaBytes;
        }
    }
    return true;
}

WireConnection::Step WireConnection::Next() {
    return StepOf(bytes_);
}

WireConnection::Step WireConnection::Requested(std::uint64_t number, const WireBytes& slot) {
    Step refused;
    refused.event = Event::Refuses;
    refused.status = kWireBadRequest;
    if (number != last_ + 1) {
        return refused;
    }
    if (FaultOf(slot.data()) == Fault::Version) {
        refused.status = kWireVersion;
        return refused;
    }
    const WireHead head = WireHeadAt(slot.data());
    if (FaultOf(slot.data()) != Fault::None || head.kind != kCall || head.callNumber != number ||
        kHeadBytes + InSlot(head.fixedBytes) + InSlot(head.arenaBytes) > kRequestSlotBytes) {
        return refused;
    }
    const auto fixed = slot.begin() + kHeadBytes;
    const auto arena = fixed + static_cast<std::ptrdiff_t>(InSlot(head.fixedBytes));
    WireBytes frame(slot.begin(), fixed + static_cast<std::ptrdiff_t>(head.fixedBytes));
    frame.insert(frame.end(), arena, arena + static_cast<std::ptrdiff_t>(head.arenaBytes));
    return StepOf(frame);
}

WireConnection::Step WireConnection::StepOf(WireBytes& bytes) {
    Step step;
    if (bytes.size() < kHeadBytes) {
        return step;
    }
    if (const auto refusal = Refusal(bytes)) {
        step.event = Event::Refuses;
        step.status = *refusal;
        return step;
    }
    const WireHead head = WireHeadAt(bytes.data());
    const std::size_t frameBytes =
        kHeadBytes + std::size_t{head.fixedBytes} + std::size_t{head.arenaBytes};
    if (bytes.size() < frameBytes) {
        return step;
    }
    step.callNumber = head.callNumber;
    step.flags = head.flags;
    const auto fixed = bytes.begin() + kHeadBytes;
    const auto arena = fixed + static_cast<std::ptrdiff_t>(head.fixedBytes);
    const auto end = bytes.begin() + static_cast<std::ptrdiff_t>(frameBytes);
    step.fixed.assign(fixed, arena);
    step.arena.assign(arena, end);
    bytes.erase(bytes.begin(), end);
    if (head.kind == kHello) {
        isGreeted_ = true;
        step.event = Event::Greeted;
    } else if (head.kind == kLookup) {
        last_ = head.callNumber;
        step.event = Event::LooksUp;
    } else if (head.kind == kMemoryRequest) {
        step.event = Event::AsksForMemory;
    } else if (head.kind == kLook) {
        step.event = Event::SaysLook;
    } else {
        last_ = head.callNumber;
        isCalled_ = true;
        step.event = Event::Called;
        step.riid = static_cast<std::uint16_t>(At<std::uint16_t>(step.fixed.data()));
        step.operation = static_cast<std::uint16_t>(At<std::uint16_t>(step.fixed.data() + 2));
    }
    return step;
}

WireBytes WireConnection::LookupAnswer(const Step& step) const {
    const auto found =
        std::find_if(endpoints_.begin(), endpoints_.end(), [&step](const WireEndpoint& endpoint) {
            return std::equal(endpoint.name.begin(), endpoint.name.end(), step.fixed.begin(),
                              step.fixed.end(), [](char named, unsigned char asked) {
                                  return static_cast<unsigned char>(named) == asked;
                              });
        });
    WireBytes result(8);
    Put(&result[0], found == endpoints_.end() ? std::uint16_t{0xFFFF} : found->riid);
    Put(&result[2], static_cast<std::uint16_t>(offersMemory_ ? 3 : 1));
    return WireFrame({.kind = kLookupAnswer, .callNumber = step.callNumber}, result);
}

std::optional<std::int32_t> WireFaultOf(const unsigned char* head, const WireAwaited& awaited) {
    const Fault fault = FaultOf(head);
    if (fault != Fault::None) {
        return fault == Fault::Version ? kWireVersion : kWireProtocol;
    }
    const WireHead read = WireHeadAt(head);
    if (read.kind == kRefusal && read.status != 0) {
        return read.status;
    }
    if (read.kind != awaited.kind || read.callNumber != awaited.callNumber ||
        read.fixedBytes != (read.status == 0 ? awaited.fixedBytes : 0)) {
        return kWireProtocol;
    }
    if (read.arenaBytes > (read.status == 0 ? awaited.arenaRoom : 0)) {
        return kWireTooLarge;
    }
    return std::nullopt;
}

}  // namespace zam_test
