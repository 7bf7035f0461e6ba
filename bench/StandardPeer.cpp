#include "Peers.h"

#include <ctime>
#include <iomanip>
#include <sstream>

#include "Samples.h"

namespace bench {
namespace {

void putTime()
{
    const std::time_t seconds = static_cast<std::time_t>(time.seconds);
    std::tm date;
    gmtime_r(&seconds, &date);
    std::ostringstream out;
    out << std::put_time(&date, "'%Y-%m-%d %H:%M:%S.") << std::setw(3) << std::setfill('0')
        << time.microseconds / 1000 << '\'';
    keep(out.str());
}

const Peers standard = {{"text/time", "put_time", putTime}};

} // namespace
} // namespace bench
