#pragma once
// UTF-16 to UTF-8 and back, into fixed buffers. Sizes count the destination's own units and include the
// terminator, which is written behind the text and to the buffer's last unit. A text that does not fit is cut
// in front of the character that no longer fits, never inside one. Invalid input becomes U+FFFD. Size 0 or
// negative (as 32 bits) is reported and writes nothing; a destination that is its own source is reported.

#include "gen/types.h"

void LCopyUTF8FromUnicode(char* szUTF8, const WCHAR* szUnicode, std::size_t BufferSize);
void LCopyUnicodeFromUTF8(WCHAR* szUnicode, const char* szUTF8, std::size_t BufferSizeChars);
