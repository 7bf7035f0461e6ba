#include <fabric-host/Link.h>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <optional>
#include <utility>

#include "../base/Guarded.h"
#include "../base/Log.h"
#include "../base/LoopTimer.h"
#include "SocketFile.h"
#include "SocketStream.h"
#include "StreamLink.h"

namespace fabric::host {
namespace {

/// Short at first, to find a restarted service soon; longer later, so that an absent one costs
/// little.
constexpr std::chrono::milliseconds firstDelay(50);
constexpr std::chrono::milliseconds longestDelay(2000);

/// Reconnects for as long as it is open.
class SocketLink final : public StreamLink
{
public:
    SocketLink(std::string path, uid_t trustedUser)
        : path_(std::move(path)), trustedUser_(trustedUser)
    {
    }

    void open(boost::asio::io_context& loop, LinkListener& listener) override;
    void close() override;
    bool reconnects() const noexcept override { return true; }

private:
    bool frameReceived(FrameView frame) override;
    void ended(int reason) override;

    void attempt();
    int connect();
    bool isTrusted(int socket) const;
    void retry();

    const std::string path_;
    const uid_t trustedUser_;
    boost::asio::io_context* loop_ = nullptr;
    std::optional<LoopTimer> retry_; ///< set while the link is open
    std::chrono::milliseconds delay_ = firstDelay;
    int reported_ = 0; ///< error number of the last failure, 0 after a success
};

void SocketLink::open(boost::asio::io_context& loop, LinkListener& listener)
{
    retry_.emplace(loop, [this] { attempt(); });
    loop_ = &loop;
    setListener(listener);
    delay_ = firstDelay;
    reported_ = 0;
    attempt();
}

void SocketLink::close()
{
    retry_.reset();
    StreamLink::close();
}

void SocketLink::attempt()
{
    int error = 0;
    try {
        error = connect();
    } catch (const std::exception&) {
        error = currentError(ENOMEM);
    }
    if (error == 0)
        return;
    if (error != reported_)
        listener().linkFailed(error);
    reported_ = error;
    retry();
}

/// Returns 0 or an error number.
int SocketLink::connect()
{
    SocketStream::Socket socket(*loop_);
    if (const int error = connectTo(path_, socket))
        return error;
    if (!isTrusted(socket.native_handle()))
        return EPERM;
    const auto stream = std::make_shared<SocketStream>(*loop_, std::move(socket));
    reported_ = 0;
    connected(stream);
    return 0;
}

bool SocketLink::isTrusted(int socket) const
{
    ucred service = {};
    socklen_t size = sizeof(service);
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &service, &size) != 0)
        return false;
    if (service.uid == ::geteuid() || service.uid == 0 || service.uid == trustedUser_)
        return true;
    log(logError, "fabric-host: the service at %s runs as user %u, which is not trusted\n",
        path_.c_str(), unsigned{service.uid});
    return false;
}

bool SocketLink::frameReceived(FrameView frame)
{
    if (!listener().frameReceived(frame))
        return false;
    delay_ = firstDelay; // a peer that sends anything else is retried less and less often
    return true;
}

void SocketLink::ended(int reason)
{
    StreamLink::ended(reason);
    retry();
}

void SocketLink::retry()
{
    retry_->expireAfter(delay_);
    delay_ = std::min(2 * delay_, longestDelay);
}

} // namespace

std::unique_ptr<Link> newSocketLink(const std::string& path, uid_t trustedUser)
{
    return std::make_unique<SocketLink>(path, trustedUser);
}

} // namespace fabric::host
