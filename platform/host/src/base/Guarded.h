#ifndef FABRIC_HOST_GUARDED_H
#define FABRIC_HOST_GUARDED_H

#include <cxxabi.h>

#include <cerrno>
#include <exception>
#include <mutex>
#include <new>
#include <system_error>

#include <boost/system/system_error.hpp>

namespace fabric::host {

/// Calls code that may throw. Passes the text of an exception to `report` and returns false.
template <typename Call, typename Report>
bool callGuarded(Call&& call, Report&& report)
{
    try {
        call();
        return true;
    } catch (abi::__forced_unwind&) {
        throw; // thread cancellation must continue
    } catch (const std::exception& exception) {
        report(exception.what());
    } catch (...) {
        report("an exception of unknown type");
    }
    return false;
}

/// Calls with the lock released. `after` is called with the lock held again, also while an
/// exception or the end of the thread unwinds the stack.
template <typename Call, typename After>
void callUnlocked(std::unique_lock<std::mutex>& lock, Call call, After after)
{
    struct Relock
    {
        ~Relock()
        {
            lock.lock();
            after();
        }
        std::unique_lock<std::mutex>& lock;
        After after;
    } const relock = {lock, after};
    lock.unlock();
    call();
}

/// Returns the error number of the exception being handled, or `otherwise` if it has none.
inline int currentError(int otherwise) noexcept
{
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    } catch (const std::system_error& error) {
        return error.code().value();
    } catch (const boost::system::system_error& error) { // Asio's; not derived from the above
        return error.code().value();
    } catch (...) {
        return otherwise;
    }
}

} // namespace fabric::host

#endif
