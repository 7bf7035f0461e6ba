// Compiled once for each STATEMENT that the interface refuses; they stand in CMakeLists.txt.

#include <chronal/Helpers.h>
#include <chronal/MessageRecords.h>
#include <chronal/UserAdapter.h>

class Adapter : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;
};

[[maybe_unused]] static void program(Adapter& adapter, fabric::AbstractApplication& application,
                                     fabric::AbstractComponent& component, fabric::MsgIds& ids)
{
    Adapter another(application, component);
    another.cmdTimeInit(ids);
    adapter.cmdRefTimeFetch(ids, chronal::referenceTimeRtc);
    STATEMENT;
}
