#pragma once

#include <string>

namespace zam_connector {

/// Sends commands to the management server through the connector service.
///
/// Every operation blocks until the service has answered or cannot be reached, returns a result
/// code (`zam_connector/result_code.h`) and never throws. Thread-safe: any number of threads may
/// call at once.
class IZamConnCommandSender {
public:
    virtual ~IZamConnCommandSender() = default;

    /// Posts an event of at most 128 bytes of text. 0x8000004B when the text is longer or the
    /// service could not be reached; otherwise what the service answers.
    virtual int PostZamEvent(std::string event) noexcept = 0;

    /// Asks for a synchronisation with the server; returns when it is scheduled. 0x8000004B when
    /// the service could not be reached; otherwise what the service answers.
    virtual int ScheduleSync() noexcept = 0;
};

}  // namespace zam_connector
