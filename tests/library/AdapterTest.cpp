#include "Desk.h"

#include <cstring>

namespace {

using desk::RecordingAdapter;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAreArray;

const std::string calledLine = "51388 onServiceConnected(): Called.";
const std::string alreadySetupLine =
    "50bb8 setServiceInterface(): Interface pointer already setup. (locked)";

struct Registration
{
    std::string key;
    std::string callback;
};

const Registration registrations[] = {
    {"component 31032008 26032014 2", "onReplyTimeRefInfo"},
    {"component 31032008 26032013 2", "onReplyTimeRefAt"},
    {"component 31032010 26032013 2", "onReplyTimeAt"},
    {"component 31032010 26032014 2", "onReplyUtcDeviationInfo"},
    {"component 31032007 26032014 2", "onReplyResult"},
    {"component 31032013 26032014 2", "onReplyDateTimeSettingsInfo"},
    {"component 31032014 26032014 2", "onReplyTimezoneInfo"},
    {"application 31032009 26032014 1", "onNotifyCurrentTime"},
    {"application 31032010 26032014 1", "onNotifyDeviationChange"},
    {"application 31032014 26032014 1", "onNotifyTimezoneChange"},
    {"application 31032018 26032014 1", "onNotifyDtvTimeChange"},
    {"application 31032020 26032014 1", "onNotifyDSTChange"},
};

class Adapter : public ::testing::Test, protected desk::Desk<RecordingAdapter>
{
};

/// The notes of removing the handlers of so many connections.
std::vector<std::string> removals(std::size_t connections)
{
    std::vector<std::string> notes;
    for (std::size_t i = 0; i < connections * std::size(registrations); ++i)
        notes.push_back("remove " + std::to_string(desk::firstHandlerId + static_cast<int>(i)));
    return notes;
}

TEST_F(Adapter, RegistersItsReceiversInOrder)
{
    attach();
    static_cast<fabric::ClientInterface&>(adapter).onServiceConnected();

    std::vector<std::string> expected = {calledLine};
    int serviceId = 500;
    for (const Registration& row : registrations) {
        expected.push_back("getServiceId");
        expected.push_back(row.key + " of " + std::to_string(serviceId++) + ", flags 0");
    }
    EXPECT_EQ(journal.take(), expected);
}

TEST_F(Adapter, BindsEachRegistrationToItsReceiver)
{
    attach();
    adapter.onServiceConnected();
    const nubEndianTable_t& largest = __nub_EndianTable_chronalMsgDateTime_t;
    const auto data = fabric::SerializableMessageData::create(largest.size, largest);
    for (const fabric::EventHandler& handler : application.handlers)
        handler.boundCaller().invoke(fabric::SerializableMessageEvent({}, {}, data));
    ASSERT_EQ(adapter.calls.size(), std::size(registrations));
    for (std::size_t i = 0; i < std::size(registrations); ++i)
        EXPECT_THAT(adapter.calls[i], StartsWith(registrations[i].callback + ' '));
}

TEST_F(Adapter, DropsTheHandlersOfAllConnectionsWhenDisconnected)
{
    attach();
    adapter.onServiceConnected();
    adapter.onServiceConnected();
    journal.take();

    adapter.onServiceDisconnected(7);
    std::vector<std::string> notes = journal.take();
    EXPECT_EQ(notes.front(), "50bb8 onServiceDisconnected(): Called: Reason is 7.");
    notes.erase(notes.begin());
    EXPECT_THAT(notes, UnorderedElementsAreArray(removals(2)));

    adapter.onServiceDisconnected(0);
    EXPECT_THAT(journal.take(), ElementsAre("50bb8 onServiceDisconnected(): Called: Reason is 0."));
}

TEST_F(Adapter, DropsItsHandlersWhenDestroyed)
{
    {
        RecordingAdapter other(application, component);
        other.setServiceInterface(&service);
        other.onServiceConnected();
        journal.take();
    }
    EXPECT_THAT(journal.take(), UnorderedElementsAreArray(removals(1)));
}

TEST_F(Adapter, SendsAfterADisconnection)
{
    attach();
    adapter.onServiceConnected();
    adapter.onServiceDisconnected(0);
    journal.take();
    adapter.cmdTimeInit(ids);
    EXPECT_THAT(
        journal.take(),
        ElementsAre("getServiceId", "sendEvent 31032017 26032014 0 of 512, flags 0, from -1 77"));
}

TEST_F(Adapter, OnlyReportsAConnectionThatFailed)
{
    attach();
    adapter.onServiceConnected();
    journal.take();
    adapter.onServiceConnectionFailed(-5);
    EXPECT_THAT(journal.take(),
                ElementsAre("50bb8 onServiceConnectionFailed(): Called: Reason is -5."));
}

TEST_F(Adapter, RegistersNothingWithoutAServiceInterface)
{
    adapter.onServiceConnected();
    EXPECT_THAT(journal.take(), ElementsAre(calledLine));
}

TEST_F(Adapter, KeepsWhatIsRegisteredWhenARegistrationThrows)
{
    attach();
    journal.onNote = [&](const std::string&) {
        if (application.handlers.size() == 1)
            throw 1;
    };
    EXPECT_THROW(adapter.onServiceConnected(), int);
    journal.onNote = nullptr;
    adapter.onServiceDisconnected(0);
    EXPECT_EQ(journal.take().back(), removals(1).front());
}

TEST_F(Adapter, KeepsItsFirstServiceInterface)
{
    desk::Service other(900);
    adapter.setServiceInterface(nullptr);
    attach();
    EXPECT_THAT(journal.take(), IsEmpty());
    fabric::ServiceInterface* const late[] = {&other, &service, nullptr};
    for (fabric::ServiceInterface* const each : late) {
        adapter.setServiceInterface(each);
        EXPECT_THAT(journal.take(), ElementsAre(alreadySetupLine));
    }
    adapter.cmdTimeInit(ids);
    EXPECT_THAT(
        journal.take(),
        ElementsAre("getServiceId", "sendEvent 31032017 26032014 0 of 500, flags 0, from -1 77"));
}

TEST_F(Adapter, WritesNoUnwantedLine)
{
    journal.linesWanted = false;
    adapter.onServiceConnected();
    adapter.onServiceConnectionFailed(1);
    adapter.onServiceDisconnected(1);
    attach();
    attach();
    EXPECT_THAT(journal.take(), IsEmpty());
}

// A mutex that checks for errors is not locked again by the thread that holds it, so the unlocking
// at the end of the hand-over takes away the lock of this test.
TEST_F(Adapter, LocksTheMutexWhenItTakesAServiceInterface)
{
    pthread_mutexattr_t checking;
    pthread_mutexattr_init(&checking);
    pthread_mutexattr_settype(&checking, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_init(&holder.mutex, &checking);
    pthread_mutex_lock(&holder.mutex);
    attach();
    EXPECT_EQ(pthread_mutex_trylock(&holder.mutex), 0);
    pthread_mutex_unlock(&holder.mutex);
    pthread_mutexattr_destroy(&checking);
}

TEST_F(Adapter, HoldsItsBasesAndFieldsInOrder)
{
    attach();
    const chronal::UserAdapter* const object = &adapter;
    const fabric::StatePart* const firstBase = object;
    const fabric::ClientInterface* const secondBase = object;
    EXPECT_EQ(static_cast<const void*>(firstBase), object);
    EXPECT_EQ(static_cast<const void*>(secondBase), firstBase + 1);
    const auto* const handlerIds =
        reinterpret_cast<const fabric::EventHandlerIdSet*>(secondBase + 1);
    const void* pointers[3];
    EXPECT_EQ(static_cast<const void*>(object + 1),
              reinterpret_cast<const char*>(handlerIds + 1) + sizeof(pointers));
    std::memcpy(pointers, static_cast<const void*>(handlerIds + 1), sizeof(pointers));
    EXPECT_THAT(pointers, ElementsAre(&application, &component, &service));
}

} // namespace
