#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// docs/wire.md once more, written down plainly and slowly, and with nothing of the product in it:
/// what the two sides have to make of any bytes. Fuzz targets and tests hold the real ones against
/// it.
namespace zam_test {

using WireBytes = std::vector<unsigned char>;

inline constexpr std::int32_t kWireBroken = 3;
inline constexpr std::int32_t kWireProtocol = 6;
inline constexpr std::int32_t kWireTooLarge = 7;
inline constexpr std::int32_t kWireVersion = 18;
inline constexpr std::int32_t kWireBadRequest = 19;

/// A frame's prelude as a service or a client would write it; the sizes are filled in from the
/// parts.
struct WireHead {
    std::uint16_t kind = 0;
    std::uint64_t callNumber = 0;
    std::uint32_t fixedBytes = 0;
    std::uint32_t arenaBytes = 0;
    std::int32_t status = 0;
    std::uint32_t flags = 0;
};

WireBytes WireFrame(WireHead head, const WireBytes& fixed = {}, const WireBytes& arena = {});

/// A message as its stub begins it, with zeros behind: `bytes` in all, which are at least 8.
WireBytes WireMessage(std::uint16_t riid, std::uint16_t operation, std::uint32_t bytes);

struct WireOperation {
    std::uint32_t requestBytes = 0;
    std::uint32_t requestArenaBytes = 0;
};

struct WireEndpoint {
    std::string name;
    std::uint16_t riid = 0;
    std::vector<WireOperation> operations;
};

/// A connection as its service sees it.
class WireConnection {
public:
    enum class Event {
        Waits,    ///< for more bytes
        Refuses,  ///< with `status`; nothing comes after it
        Greeted,
        LooksUp,  ///< the name is `frame`'s fixed part
        Called,
        AsksForMemory,
        SaysLook,
    };

    struct Step {
        Event event = Event::Waits;
        std::int32_t status = 0;
        std::uint64_t callNumber = 0;
        std::uint32_t flags = 0;
        std::uint16_t riid = 0;
        std::uint16_t operation = 0;
        WireBytes fixed;
        WireBytes arena;
    };

    /// `endpoints` must outlive the object.
    explicit WireConnection(const std::vector<WireEndpoint>& endpoints, bool offersMemory = false)
        : endpoints_(endpoints), offersMemory_(offersMemory) {}

    void Feed(const unsigned char* bytes, std::size_t count) {
        bytes_.insert(bytes_.end(), bytes, bytes + count);
    }

    /// What the service does next with what has come. After `Called` no other call may begin
    /// before `Answered`.
    Step Next();
    void Answered() noexcept { isCalled_ = false; }

    /// What the service does with a request of this number in memory, whose slot holds these
    /// bytes.
    Step Requested(std::uint64_t number, const WireBytes& slot);

    /// The service has granted memory, or given it up.
    void Grant() noexcept { hasMemory_ = hasAgreed_ = true; }
    void GiveUp() noexcept { hasMemory_ = false; }
    bool HasMemory() const noexcept { return hasMemory_; }

    /// Number of the last lookup or call.
    std::uint64_t Last() const noexcept { return last_; }

    /// The answer to a lookup.
    WireBytes LookupAnswer(const Step& step) const;

private:
    Step StepOf(WireBytes& bytes);
    std::optional<std::int32_t> Refusal(const WireBytes& bytes) const;
    bool BreaksARuleOfCalls(const WireHead& head, const WireBytes& bytes) const;

    const std::vector<WireEndpoint>& endpoints_;
    const bool offersMemory_;
    WireBytes bytes_;
    bool isGreeted_ = false;
    bool isCalled_ = false;
    bool hasMemory_ = false;
    bool hasAgreed_ = false;  ///< has had memory once
    std::uint64_t last_ = 0;
};

/// What a client waits for.
struct WireAwaited {
    std::uint16_t kind = 5;
    std::uint64_t callNumber = 0;
    std::uint32_t fixedBytes = 0;
    std::uint32_t arenaRoom = 0;
};

/// The failure that an answer's 32 bytes of prelude are for whoever awaits it; empty for none.
std::optional<std::int32_t> WireFaultOf(const unsigned char* head, const WireAwaited& awaited);

/// Reads what stands at a place of a frame.
WireHead WireHeadAt(const unsigned char* head);

}  // namespace zam_test
