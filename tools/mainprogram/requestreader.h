#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "tools/wire.h"

namespace sndxtools
{
// Reads the stream of one connection and tells in readable lines what arrived and what is wrong with it.
// Pieces may be cut anywhere. Never holds more than one message of the largest valid size: a header that
// cannot be trusted (wrong marker, larger payload) makes the rest of the connection unreadable.
class RequestReader
{
  public:
    // Takes the next bytes; returns the text of every message that they complete (often none).
    std::string Feed(const unsigned char* bytes, std::size_t count);

    // The sender has ended the connection; returns the complaint about an unfinished message, if any.
    std::string End();

    unsigned Messages() const { return messages_; } // complete ones, malformed ones included
    unsigned Faults() const { return faults_; }
    std::uint64_t Bytes() const { return bytes_; }

  private:
    enum class State
    {
        header,
        payload,
        unreadable
    };
    void ReadHeader();
    void ReadPayload();
    void Line(const std::string& text);
    void Fault(const std::string& text);

    State state_ = State::header;
    wire::Header header_ = {};
    std::vector<unsigned char> pending_; // of the header or the payload under way
    std::size_t wanted_ = sizeof(wire::Header);
    std::string text_; // not yet returned
    unsigned messages_ = 0;
    unsigned faults_ = 0;
    std::uint64_t bytes_ = 0;
};
} // namespace sndxtools
