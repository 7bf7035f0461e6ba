#ifndef CHRONAL_SIM_FAULT_INJECTOR_H
#define CHRONAL_SIM_FAULT_INJECTOR_H

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include <fabric-host/Service.h>

namespace chronal::sim {

struct Faults
{
    std::size_t dropAfter = 0;     ///< commands, then a client is disconnected; 0 for never
    std::set<std::string> refused; ///< names of commands that are answered with -EACCES
};

/// Adds faults to a service, to rehearse how its clients handle them, and logs connections and
/// messages.
class FaultInjector final : public fabric::host::Service, private fabric::host::ClientSender
{
public:
    /// Must not throw.
    using Log = std::function<void(const std::string& line)>;

    /// `service` must outlive this object. With an empty `log`, no lines are formatted.
    FaultInjector(fabric::host::Service& service, const Faults& faults, Log log);

    const fabric::host::MessageCatalogue& catalogue() const override;
    void start(fabric::host::ClientSender& outlet) override;
    void clientConnected(fabric::host::ClientId client) override;
    void clientDisconnected(fabric::host::ClientId client) override;
    void commandReceived(fabric::host::ClientId client,
                         const fabric::SerializableMessageEvent& command) override;
    TimePoint runDue() override;

private:
    using ClientId = fabric::host::ClientId;

    void send(ClientId client, std::unique_ptr<fabric::SerializableMessageEvent> event) override;
    void drop(ClientId client, int reason) override;

    template <class Text>
    void note(Text text) const noexcept;
    bool isRefused(const fabric::SerializableMessageEvent& command) const;
    void refuse(ClientId client, const fabric::SerializableMessageEvent& command);

    fabric::host::Service& service_;
    const Faults faults_;
    const Log log_;
    fabric::host::ClientSender* outlet_ = nullptr;
    std::map<ClientId, std::size_t> commands_; ///< received from each connected client
};

} // namespace chronal::sim

#endif
