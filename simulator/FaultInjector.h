#ifndef CHRONAL_SIM_FAULT_INJECTOR_H
#define CHRONAL_SIM_FAULT_INJECTOR_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include <chronal-sim/Messages.h>
#include <fabric-host/Service.h>

#include "Clock.h"

namespace chronal::sim {

/// What happens to a command in place of, or in addition to, its being carried out.
struct Fault
{
    bool carriedOut = false;   ///< by the service, which answers
    Content answer = {};       ///< if it is not carried out; without data there is no answer
    Span delay = Span::zero(); ///< of either answer
};

/// The answer to a command that is refused with this error number.
Content refusal(int error);

/// Adds faults to a service, to rehearse how its clients handle them, and logs connections and
/// messages. The faults may be changed between two calls of its operations.
class FaultInjector final : public fabric::host::Service, private fabric::host::ClientSender
{
public:
    /// Must not throw.
    using Log = std::function<void(const std::string& line)>;

    /// `service` runs by `clock`; both must outlive this object. With an empty `log`, no lines are
    /// formatted. Unless `dropAfter` is 0, clients are disconnected after so many commands.
    FaultInjector(fabric::host::Service& service, const Clock& clock, Log log = Log(),
                  std::size_t dropAfter = 0);

    /// Applies a fault to every command of that name (see commandNames()), or none. Returns the
    /// previous one.
    std::optional<Fault> setFault(const std::string& command, std::optional<Fault> fault);

    /// Disconnects all clients.
    void dropAll(int reason);

    /// Sends a notification to all clients.
    void notify(const Content& content);

    /// Moves `clock`, by which the service runs, to the next time at which something is due, but
    /// not past `target`, and does what is due. Returns true when `target` has been reached.
    bool advance(SettableClock& clock, TimePoint target);

    const fabric::host::MessageCatalogue& catalogue() const override;
    void start(fabric::host::ClientSender& outlet) override;
    void clientConnected(fabric::host::ClientId client) override;
    void clientDisconnected(fabric::host::ClientId client) override;
    void commandReceived(fabric::host::ClientId client,
                         const fabric::SerializableMessageEvent& command) override;
    /// Returns a time of the machine's clock.
    TimePoint runDue() override;

private:
    using ClientId = fabric::host::ClientId;

    struct Delayed
    {
        ClientId client;
        std::unique_ptr<fabric::SerializableMessageEvent> event;
    };

    void send(ClientId client, std::unique_ptr<fabric::SerializableMessageEvent> event) override;
    void drop(ClientId client, int reason) override;

    template <class Text>
    void note(Text text) const noexcept;
    void sendNow(ClientId client, std::unique_ptr<fabric::SerializableMessageEvent> event);
    TimePoint runDueByClock();

    fabric::host::Service& service_;
    const Clock& clock_;
    const Log log_;
    const std::size_t dropAfter_;
    fabric::host::ClientSender* outlet_ = nullptr;
    std::map<ClientId, std::size_t> commands_; ///< received from each connected client
    std::map<std::string, Fault> faults_;
    Span delay_ = Span::zero();                 ///< of the answer to the command in progress
    std::multimap<TimePoint, Delayed> delayed_; ///< by the time at which they are sent
    std::uint32_t lastNotification_ = 1U << 31; ///< apart from those of the service
};

} // namespace chronal::sim

#endif
