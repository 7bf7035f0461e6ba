#include <cstdio>
#include <stdexcept>

#include <chronal/Helpers.h>
#include <chronal/MessageRecords.h>
#include <chronal/UserAdapter.h>

namespace {

class Client : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;

protected:
    void onReplyTimeRefAt(const fabric::MsgIds& ids, const nubOsalTime_struct& utcTime,
                          const nubOsalTime_struct&,
                          const chronal::ReferenceTimeId& refTimeId) override
    {
        std::printf("%s says %s, with ids %s\n", chronal::Helpers::getRefTimeStr(refTimeId).c_str(),
                    chronal::Helpers::getTimeStr(utcTime).c_str(), ids.text.c_str());
    }
};

} // namespace

int main()
{
    fabric::AbstractApplication application;
    fabric::AbstractComponent component;
    fabric::ServiceInterface service;
    Client client(application, component);
    client.setServiceInterface(&service);
    fabric::ClientInterface& reports = client;
    reports.onServiceConnected();
    std::printf("%d handlers\n", application.registrations());

    fabric::MsgIds ids("none");
    client.cmdTimezoneSet(ids, "Europe/Berlin");
    std::printf("ids %s\n", ids.text.c_str());

    fabric::Event::refused = true;
    try {
        client.cmdTimezoneSet(ids, "Asia/Tokyo");
    } catch (const std::length_error& error) {
        std::printf("caught: %s\n", error.what());
    }
    fabric::Event::refused = false;

    const auto data = fabric::SerializableMessageData::create(
        sizeof(chronalMsgReplyTime_t), __nub_EndianTable_chronalMsgReplyTime_t);
    auto& record = *static_cast<chronalMsgReplyTime_t*>(data->payload);
    record.refTimeId = chronal::referenceTimeNtp;
    record.utcTime = {1774698000, 250000, 0};
    application.deliver(
        fabric::SerializableMessageEvent({7, 31032008, 26032013, 2}, {-1, 1}, data));

    reports.onServiceDisconnected(5);
    std::printf("%d handlers\n", application.registrations());
}
