#ifndef FABRIC_SERIALIZABLE_MESSAGE_H
#define FABRIC_SERIALIZABLE_MESSAGE_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

#include <boost/shared_ptr.hpp>

#include <fabric/Event.h>
#include <fabric/MsgMeta.h>
#include <fabric/Twine.h>
#include <nub/Endian.h>

namespace fabric {

/// Owns one payload record and whatever the record owns. Shared by the sender, the event and the
/// receivers; the last of them to let go releases it, on its own thread.
class SerializableMessageData
{
public:
    /// Takes over `record`, which comes from calloc() and may be null.
    SerializableMessageData(void* record, std::uint32_t word,
                            const nubEndianTable_t* table) noexcept
        : payload(record), releaseWord(word), endianTable(table)
    {
    }

    virtual ~SerializableMessageData()
    {
        const MsgMeta release = {0xFFFFFFFFU, 0, 0, 0xFF};
        fabricTwineDeserReleaseMessage(releaseWord, &release, endianTable, payload);
        std::free(payload);
    }

    SerializableMessageData(const SerializableMessageData&) = delete;
    SerializableMessageData& operator=(const SerializableMessageData&) = delete;

    /// A zero-filled payload of `size` bytes, at least the size of the record that `table`
    /// describes, and its owner. Throws std::bad_alloc, with nothing left behind.
    static boost::shared_ptr<SerializableMessageData> create(std::size_t size,
                                                             const nubEndianTable_t& table);

    void* payload;
    std::uint32_t releaseWord;
    const nubEndianTable_t* endianTable; ///< not owned
};

/// A message under way: an event and a share of its payload. Always on the heap, since sendEvent()
/// takes it over.
class SerializableMessageEvent : public Event
{
public:
    SerializableMessageEvent(const MsgMeta& identity, const EndpointId& endpoint,
                             const boost::shared_ptr<SerializableMessageData>& messageData)
        : Event(identity, endpoint), data(messageData)
    {
    }

    boost::shared_ptr<SerializableMessageData> data;
};

inline boost::shared_ptr<SerializableMessageData>
SerializableMessageData::create(std::size_t size, const nubEndianTable_t& table)
{
    struct Free
    {
        void operator()(void* buffer) const { std::free(buffer); }
    };
    std::unique_ptr<void, Free> buffer(std::calloc(1, size));
    if (!buffer)
        throw std::bad_alloc();
    SerializableMessageData* const data = new SerializableMessageData(buffer.get(), 0, &table);
    buffer.release();
    // Deletes the data, and with it the payload, if the reference count cannot be allocated.
    return boost::shared_ptr<SerializableMessageData>(data);
}

} // namespace fabric

#endif
