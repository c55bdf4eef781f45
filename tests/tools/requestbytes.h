#pragma once
// Requests put together byte by byte, independently of the declarations that the receiver reads them with.

#include <cstdint>
#include <string>

#include "tests/support/text.h"

namespace sndxtest
{
inline std::string Number(std::uint32_t value, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i)
    {
        text += static_cast<char>(value >> (8 * i) & 0xFF);
    }
    return text;
}

inline std::string HeaderBytes(std::uint32_t payloadSize, std::uint32_t marker = 0x1234,
                               std::uint32_t format = 3, std::uint32_t code = 0x0100000B,
                               std::uint32_t reserved = 0)
{
    return Number(marker, 2) + Number(format, 2) + Number(code, 4) + Number(payloadSize, 4) +
           Number(reserved, 4);
}

// 520 bytes: the text, a NUL and filling that must not be shown.
inline std::string SlotBytes(const std::string& utf8)
{
    std::string bytes;
    for (const WCHAR unit : Wide(utf8))
    {
        bytes += Number(static_cast<std::uint32_t>(unit), 2);
    }
    bytes += Number(0, 2);
    while (bytes.size() < 520)
    {
        bytes += Number('#', 2);
    }
    return bytes;
}

template <class... Text>
std::string PayloadBytes(const Text&... slots)
{
    return Number(sizeof...(slots), 4) + (SlotBytes(slots) + ...);
}

template <class... Text>
std::string MessageBytes(const Text&... slots)
{
    const std::string payload = PayloadBytes(slots...);
    return HeaderBytes(static_cast<std::uint32_t>(payload.size())) + payload;
}
} // namespace sndxtest
