#include "tools/mainprogram/requestreader.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "tools/text.h"

namespace sndxtools
{
std::string RequestReader::Feed(const unsigned char* bytes, std::size_t count)
{
    bytes_ += count;
    while (count > 0 && state_ != State::unreadable)
    {
        const std::size_t taken = std::min(count, wanted_ - pending_.size());
        pending_.insert(pending_.end(), bytes, bytes + taken);
        bytes += taken;
        count -= taken;
        if (pending_.size() < wanted_)
        {
            break;
        }
        if (state_ == State::header)
        {
            ReadHeader();
        }
        // Not "else": an empty payload is complete with its header.
        if (state_ == State::payload && pending_.size() == wanted_)
        {
            ReadPayload();
        }
    }
    return std::exchange(text_, {});
}

std::string RequestReader::End()
{
    if (state_ == State::payload)
    {
        Fault("the connection ended after " + std::to_string(pending_.size()) + " of " +
              std::to_string(wanted_) + " payload bytes");
    }
    else if (state_ == State::header && !pending_.empty())
    {
        Line("message " + std::to_string(messages_ + 1) + ":");
        Fault("the connection ended after " + std::to_string(pending_.size()) + " of " +
              std::to_string(wanted_) + " header bytes");
    }
    state_ = State::unreadable;
    return std::exchange(text_, {});
}

void RequestReader::ReadHeader()
{
    std::memcpy(&header_, pending_.data(), sizeof header_);
    pending_.clear();
    Line("message " + std::to_string(messages_ + 1) + ": marker " + Hex(header_.marker, 4) + ", format " +
         std::to_string(header_.format) + ", code " + Hex(header_.code, 8) + ", payload " +
         std::to_string(header_.payloadSize) + " bytes, reserved " + std::to_string(header_.reserved));
    if (header_.marker != wire::marker)
    {
        Fault("the marker is not " + Hex(wire::marker, 4) + "; the rest of the connection is skipped");
        state_ = State::unreadable;
        return;
    }
    if (header_.format != wire::format)
    {
        Fault("the format is not " + std::to_string(wire::format));
    }
    if (header_.code != wire::code)
    {
        Fault("the code is not " + Hex(wire::code, 8));
    }
    if (header_.reserved != 0)
    {
        Fault("the reserved field is not 0");
    }
    const std::size_t size = header_.payloadSize;
    if (size < wire::PayloadSize(0) || (size - wire::PayloadSize(0)) % sizeof(wire::Slot) != 0)
    {
        Fault("the payload size is not 4 + 520 x slots");
    }
    if (size > sizeof(wire::Payload))
    {
        Fault("the payload is larger than " + std::to_string(sizeof(wire::Payload)) +
              " bytes; the rest of the connection is skipped");
        state_ = State::unreadable;
        return;
    }
    state_ = State::payload;
    wanted_ = size;
}

void RequestReader::ReadPayload()
{
    wire::Payload payload = {};
    std::memcpy(&payload, pending_.data(), pending_.size());
    const std::size_t size = pending_.size();
    pending_.clear();
    state_ = State::header;
    wanted_ = sizeof(wire::Header);
    ++messages_;

    const std::size_t held =
        size < wire::PayloadSize(0) ? 0 : (size - wire::PayloadSize(0)) / sizeof(wire::Slot);
    if (size >= wire::PayloadSize(0))
    {
        Line("  slots " + std::to_string(payload.slotCount));
        if (payload.slotCount < wire::minSlots || payload.slotCount > wire::maxSlots)
        {
            Fault("the slot count is not between 2 and 128");
        }
        if (payload.slotCount != held)
        {
            Fault("the payload has room for " + std::to_string(held) + " slots");
        }
    }
    const std::size_t count = std::min<std::size_t>(payload.slotCount, held);
    for (std::size_t i = 0; i < count; ++i)
    {
        const wire::Slot& slot = payload.slots[i];
        const char16_t* end = std::find(std::begin(slot), std::end(slot), char16_t{});
        const WideString wide(std::begin(slot), end);
        const std::string text = Utf8(wide);
        Line("  " + (i == 0 ? std::string("option") : "path " + std::to_string(i)) + " " + Quoted(text));
        if (end == std::end(slot))
        {
            Fault("the text of slot " + std::to_string(i) + " is not terminated");
        }
        if (i == 0 && std::find(std::begin(wire::optionWords), std::end(wire::optionWords), text) ==
                          std::end(wire::optionWords))
        {
            Fault("unknown option word");
        }
    }
}

void RequestReader::Line(const std::string& text)
{
    text_ += text + "\n";
}

void RequestReader::Fault(const std::string& text)
{
    ++faults_;
    Line("  malformed: " + text);
}
} // namespace sndxtools
