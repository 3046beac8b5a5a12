#pragma once

#include <chrono>
#include <iosfwd>
#include <optional>
#include <string>

#include "clock.h"
#include "connector_provider.h"
#include "failure.h"
#include "output.h"
#include "record_keeper.h"
#include "system_view.h"
#include "zam_connector/call_deadline.h"

namespace zamctl {

/// Longest time for a call by itself.
inline constexpr std::chrono::seconds kCallTimeout{10};

/// How much longer than the time that it was given a command that keeps it itself waits for a
/// service that answers nothing.
inline constexpr std::chrono::seconds kGrace{1};

/// Ends the command behind `limit` and `kGrace` wherever it hangs then: in an output that nobody
/// reads, most likely.
void LimitRun(Clock& clock, std::chrono::milliseconds limit);

/// Everything that a command touches; nothing is owned, and all of it must outlive the command's
/// run.
struct Surroundings {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    ConnectorProvider& provider;
    RecordKeeper& records;
    Clock& clock;
    const SystemView& system;
};

/// What one run of a command works with.
class Context {
public:
    /// `asked` is the bound that the command line gives the command as a whole, `limit` what bounds
    /// its calls together from the first on.
    Context(const Surroundings& surroundings, Output::Format format,
            std::optional<std::chrono::milliseconds> asked = std::nullopt,
            std::optional<std::chrono::milliseconds> limit = std::nullopt)
        : in(surroundings.in),
          err(surroundings.err),
          clock(surroundings.clock),
          system(surroundings.system),
          provider(surroundings.provider),
          output(surroundings.out, format),
          timeout(asked),
          start(surroundings.clock.Now()),
          limit_(limit),
          records_(surroundings.records) {}

    /// Lets the time of the command begin, at the first call; what is read before, from a pipe
    /// perhaps, takes no time from it. Connectors begin it themselves.
    void Begin();

    /// The connector. Throws `ConnectorFailure` when it cannot be made.
    ConnectorInterfaces Connector();

    /// Asks `look`, which uses the provider; what it throws becomes a `ConnectorFailure`.
    template <typename Look>
    auto Reach(Look&& look) {
        Begin();
        records_.Clear();
        try {
            return look(provider);
        } catch (const std::exception& exception) {
            ThrowConnectorFailure(exception);
        }
    }

    /// Makes one call and returns its code; throws `CallFailure` for a failure, and `Failure` when
    /// the time is over and the call was not made. `action` completes "cannot ...".
    template <typename Call>
    int Checked(const char* action, Call&& call) {
        ThrowIfOver(action);
        records_.Clear();
        const int code = call();
        if (code < 0) {
            throw CallFailure(action, code, records_.Cause(),
                              zam_connector::LastTransportStatus().failure);
        }
        return code;
    }

    /// What the library logged about the last failure, for once; empty when it logged nothing.
    std::string TakeCause();

    std::istream& in;
    std::ostream& err;  ///< for progress and summaries
    Clock& clock;
    const SystemView& system;
    ConnectorProvider& provider;
    Output output;
    const std::optional<std::chrono::milliseconds> timeout;
    Clock::TimePoint start;  ///< of the first look at the service

private:
    [[noreturn]] void ThrowConnectorFailure(const std::exception& exception) const;

    void ThrowIfOver(const char* action) const;

    const std::optional<std::chrono::milliseconds> limit_;
    std::optional<zam_connector::CallDeadline> deadline_;
    bool hasBegun_ = false;
    RecordKeeper& records_;
};

class Options;

/// One command, to be run once.
class Command {
public:
    virtual ~Command() = default;

    /// Declares the options that it has; the parse writes them to this object.
    virtual void Declare(Options& /*options*/) {}

    /// Longest time that its calls may take together; none when each has `kCallTimeout`. `asked` is
    /// what the command line says.
    virtual std::optional<std::chrono::milliseconds> Limit(
        std::optional<std::chrono::milliseconds> asked) const {
        return asked;
    }

    /// Longest time for each of its calls; 0 for none.
    virtual std::chrono::milliseconds CallTimeout() const { return kCallTimeout; }

    /// False for one of which nobody reads messages.
    virtual bool HasMessages() const { return true; }

    /// Does the work and prints its result. Throws `Failure`, with nothing printed unless the
    /// command says otherwise; a `UsageError` before anything is sent.
    virtual void Run(Context& context) = 0;
};

}  // namespace zamctl
