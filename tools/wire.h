#pragma once
// What travels over the main program's control pipe, as its receiver understands it: a stream of messages,
// each a header and at once its payload. Little-endian. Declared here on its own, so that the receiver
// shows what really arrives and not what the sender believes to send.

#include <bit>
#include <cstddef>
#include <cstdint>

namespace sndxtools::wire
{
static_assert(std::endian::native == std::endian::little, "messages are read by copying");

constexpr std::uint16_t marker = 0x1234;
constexpr std::uint16_t format = 3;
constexpr std::uint32_t code = 0x0100000B;

struct Header
{
    std::uint16_t marker;
    std::uint16_t format;
    std::uint32_t code;
    std::uint32_t payloadSize; // bytes that follow this header
    std::uint32_t reserved;    // 0
};
static_assert(sizeof(Header) == 16);
static_assert(offsetof(Header, format) == 2 && offsetof(Header, code) == 4);
static_assert(offsetof(Header, payloadSize) == 8 && offsetof(Header, reserved) == 12);

constexpr std::size_t slotUnits = 260; // the terminating NUL included
using Slot = char16_t[slotUnits];
static_assert(sizeof(Slot) == 520);

// Slot 0 holds the option word, each further slot one path.
constexpr std::uint32_t minSlots = 2;
constexpr std::uint32_t maxSlots = 128;

struct Payload
{
    std::uint32_t slotCount;
    Slot slots[maxSlots]; // only slotCount of them are sent
};
static_assert(offsetof(Payload, slots) == 4);
static_assert(sizeof(Payload) == 66564);

constexpr std::size_t PayloadSize(std::size_t slots)
{
    return offsetof(Payload, slots) + slots * sizeof(Slot);
}
static_assert(PayloadSize(maxSlots) == sizeof(Payload));

constexpr const char* optionWords[] = {"-upload", "-download", "-deleteconfirmed"};
} // namespace sndxtools::wire
