#ifndef BENCH_FLOOR_FRAMES_H
#define BENCH_FLOOR_FRAMES_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <chronal/ReferenceTimeId.h>
#include <nub/Endian.h>
#include <nub/Osal.h>

#include "FloorMiddleware.h"
#include "Samples.h"

/// Conversion between records and frames by hand: each word of the header and each field of the
/// record is byte-swapped in its place, one after the other.
namespace bench::floors {

template <typename Word>
inline Word swapped(Word word)
{
    return sizeof(Word) == 8
               ? static_cast<Word>(__builtin_bswap64(static_cast<std::uint64_t>(word)))
               : static_cast<Word>(__builtin_bswap32(static_cast<std::uint32_t>(word)));
}

template <typename Word>
inline std::uint8_t* put(std::uint8_t* out, Word word)
{
    word = swapped(word);
    std::memcpy(out, &word, sizeof(word));
    return out + sizeof(word);
}

inline std::uint8_t* put(std::uint8_t* out, const nubOsalTime_struct& from)
{
    return put(put(out, from.seconds), from.microseconds);
}

inline std::uint8_t* put(std::uint8_t* out, const nubDeserString_t& from)
{
    out = put(out, from.length);
    std::memcpy(out, from.chars, from.length);
    return out + from.length;
}

template <typename Word>
inline const std::uint8_t* get(const std::uint8_t* in, Word& word)
{
    std::memcpy(&word, in, sizeof(word));
    word = swapped(word);
    return in + sizeof(word);
}

inline const std::uint8_t* get(const std::uint8_t* in, nubOsalTime_struct& to)
{
    return get(get(in, to.seconds), to.microseconds);
}

inline const std::uint8_t* get(const std::uint8_t* in, nubDeserString_t& to)
{
    std::uint32_t length;
    in = get(in, length);
    set(to, reinterpret_cast<const char*>(in), length);
    return in + length;
}

template <typename Field>
inline std::size_t sizeInFrame(const Field&)
{
    return sizeof(std::uint32_t);
}

inline std::size_t sizeInFrame(const nubOsalTime_struct&)
{
    return sizeof(std::int64_t) + sizeof(std::int32_t);
}

inline std::size_t sizeInFrame(const nubDeserString_t& field)
{
    return sizeof(field.length) + field.length;
}

template <typename Field>
inline void release(Field&)
{
}

inline void release(nubDeserString_t& field) { std::free(field.chars); }

/// Messages of one kind of record, with its fields in the order of the frame.
template <typename Record, auto... fields>
class Frames
{
public:
    explicit Frames(const std::string& text = longZone) : record_()
    {
        (fill(record_.*fields, text), ...);
        encode();
    }

    Frames(const Frames&) = delete;
    Frames& operator=(const Frames&) = delete;

    void encode()
    {
        keep(record_);
        const std::size_t size = headerWords * sizeof(std::uint32_t) +
                                 (std::size_t{0} + ... + sizeInFrame(record_.*fields));
        frame_.resize(size);
        std::uint8_t* out = put(frame_.data(), static_cast<std::uint32_t>(size));
        for (std::uint32_t word = 1; word < headerWords; ++word)
            out = put(out, word);
        ((out = put(out, record_.*fields)), ...);
        keep(frame_);
    }

    /// Makes the message and releases it at once.
    void decode() const
    {
        ControlBlock* const block =
            created(sizeof(Record),
                    [](std::uint32_t, const fabric::MsgMeta*, const nubEndianTable_t*,
                       void* payload) { (release(static_cast<Record*>(payload)->*fields), ...); });
        const std::uint8_t* in = frame_.data() + headerWords * sizeof(std::uint32_t);
        ((in = get(in, recordOf<Record>(*block).*fields)), ...);

        Event* const event = new Event({}, {}, block);
        in = get(frame_.data() + sizeof(std::uint32_t), event->identity.serviceId);
        in = get(in, event->identity.resourceId);
        in = get(in, event->identity.operationId);
        event->identity.kind = *in;
        in = get(in + sizeof(std::uint32_t), event->sender.node);
        in = get(in, event->sender.componentId);
        in = get(in, event->ids.originId);
        get(in, event->ids.messageId);
        keep(*event);
        delete event;
    }

private:
    static constexpr std::uint32_t headerWords = 9;

    template <typename Field>
    static void fill(Field&, const std::string&)
    {
    }
    static void fill(nubDeserString_t& field, const std::string& text)
    {
        set(field, text.data(), text.size());
    }

    Record record_;
    std::vector<std::uint8_t> frame_;
};

} // namespace bench::floors

#endif
