#ifndef FABRIC_STATE_PART_H
#define FABRIC_STATE_PART_H

#include <pthread.h>

#include <fabric/Export.h>

namespace fabric {

/// The state of an application: the mutex that its parts share.
class FABRIC_API StateHolder
{
public:
    StateHolder();
    ~StateHolder();

    StateHolder(const StateHolder&) = delete;
    StateHolder& operator=(const StateHolder&) = delete;

    pthread_mutex_t mutex;
};

/// A part of an application's state.
class FABRIC_API StatePart
{
public:
    explicit StatePart(StateHolder& holder);
    virtual ~StatePart();

    StatePart(const StatePart&) = delete;
    StatePart& operator=(const StatePart&) = delete;

protected:
    /// Returns the mutex of the holder, which is not recursive.
    pthread_mutex_t* stateMutex() const { return &stateHolder_.mutex; }

private:
    StateHolder& stateHolder_;
};

} // namespace fabric

#endif
