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

/// Owns one payload record and the strings in it. The sender, the event and the receivers share it;
/// the last of them to release it destroys it, on its own thread.
class SerializableMessageData
{
public:
    /// Takes ownership of `record`, which was allocated with calloc() and may be null.
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

    /// Creates a zero-filled payload of `size` bytes and its owner. `size` is at least the size of
    /// the record that `table` describes. Throws std::bad_alloc and leaks nothing.
    static boost::shared_ptr<SerializableMessageData> create(std::size_t size,
                                                             const nubEndianTable_t& table);

    void* payload;
    std::uint32_t releaseWord;
    const nubEndianTable_t* endianTable; ///< not owned
};

/// A message in flight: an event and a share in its payload. Events that are sent are created with
/// new, because sendEvent() takes ownership of them.
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
    // If the reference count cannot be allocated, this deletes the data, and with it the payload.
    return boost::shared_ptr<SerializableMessageData>(data);
}

} // namespace fabric

#endif
