#include "FloorMiddleware.h"

#include "Samples.h"

namespace bench::floors {

Service::~Service() = default;
Application::~Application() = default;
Listener::~Listener() = default;

std::uint32_t Service::serviceId() { return 1; }

int Application::sendEvent(fabric::MsgIds&, int, Event* event)
{
    delete event;
    return 0;
}

void Listener::time(const fabric::MsgIds&, const nubOsalTime_struct&, const nubOsalTime_struct&,
                    const nubOsalTime_struct&, const chronal::ReferenceTimeId&, bool, int)
{
}

void Listener::settings(const fabric::MsgIds&, const nubOsalTime_struct&, const nubOsalTime_struct&,
                        const nubOsalTime_struct&, const nubOsalTime_struct&,
                        const nubOsalTime_struct&, const int&, const std::string&, const bool&,
                        const bool&, const bool&)
{
}

void Listener::zone(const fabric::MsgIds&, const std::string&, const nubOsalTime_struct&) {}

namespace {

class OverridingListener : public Listener
{
public:
    void time(const fabric::MsgIds&, const nubOsalTime_struct& deviation, const nubOsalTime_struct&,
              const nubOsalTime_struct&, const chronal::ReferenceTimeId&, bool, int) override
    {
        keep(deviation);
    }
    void settings(const fabric::MsgIds&, const nubOsalTime_struct& time0, const nubOsalTime_struct&,
                  const nubOsalTime_struct&, const nubOsalTime_struct&, const nubOsalTime_struct&,
                  const int&, const std::string&, const bool&, const bool&, const bool&) override
    {
        keep(time0);
    }
    void zone(const fabric::MsgIds&, const std::string& name, const nubOsalTime_struct&) override
    {
        keep(name);
    }
};

Service theService;
Application theApplication;
Listener theBareListener;
OverridingListener theOverridingListener;

} // namespace

Service* service = &theService;
Application* application = &theApplication;
Listener* bareListener = &theBareListener;
Listener* overridingListener = &theOverridingListener;

} // namespace bench::floors
