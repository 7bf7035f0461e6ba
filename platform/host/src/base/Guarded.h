#ifndef FABRIC_HOST_GUARDED_H
#define FABRIC_HOST_GUARDED_H

#include <cxxabi.h>

#include <exception>

namespace fabric {
namespace host {

/// Calls foreign code. An exception out of it goes to `report`, as text, and no further; false
/// then.
template <typename Call, typename Report>
bool callGuarded(Call&& call, Report&& report)
{
    try {
        call();
        return true;
    } catch (abi::__forced_unwind&) {
        throw; // the thread is being cancelled, which must not be held up
    } catch (const std::exception& exception) {
        report(exception.what());
    } catch (...) {
        report("an exception of unknown type");
    }
    return false;
}

} // namespace host
} // namespace fabric

#endif
