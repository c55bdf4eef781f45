#pragma once
// The reporting operations that every room uses: trace lines, assertion reports, run-time checks and
// tracked allocation. Declarations only, so that any room may include this; diag/ implements them above
// strings, files, settings and locks.
//
// All of them are safe on any thread. Reports and checks return nothing and let the caller carry on; only the
// release of a block that is none of the tracker's stops in the debugger. Narrow texts are ASCII or UTF-8,
// wide texts reach the trace file as UTF-8, and a null text is written as "!!! NULL !!!".

#include <new>

#include "gen/types.h"

// --- Trace lines ---

// Writes one line with time stamp and thread column; bError marks it as an error line. A line of more
// than 8191 bytes, its CR LF included, is cut.
void LDebugWriteLine(const char* szText, bool bError);
void LDebugWriteLineW(const WCHAR* szText, bool bError);

void LDebugTrace(const char* szText);
void LDebugTraceError(const char* szText);
// Prefix and value in one line.
void LDebugTrace(const char* szPrefix, const char* szValue);
void LDebugTraceError(const char* szPrefix, const char* szValue);
void LDebugTrace(const char* szPrefix, const WCHAR* szValue);
void LDebugTraceError(const char* szPrefix, const WCHAR* szValue);
void LDebugTrace(const char* szPrefix, std::int64_t nValue);
void LDebugTraceError(const char* szPrefix, std::int64_t nValue);

// Behind a narrow prefix a wide value is cut to 259 bytes of UTF-8; the other forms hold 8191 characters.
void LDebugTraceValue(const char* szPrefix, const char* szValue, bool bError);
void LDebugTraceValue(const char* szPrefix, std::int32_t nValue, bool bError);
void LDebugTraceValue(const char* szPrefix, std::int64_t nValue, bool bError);
void LDebugTraceValue(const char* szPrefix, const WCHAR* szValue, bool bError);
void LDebugTraceValue(const WCHAR* szPrefix, const WCHAR* szValue, bool bError);

// "function text": a line that names the function it comes from.
void LDebugTraceFunction(const char* szFunction, bool bError, const char* szText);
void LDebugTraceFunction(const char* szFunction, bool bError, const WCHAR* szText);
void LDebugTraceFunctionF(const char* szFunction, bool bError, const char* szFormat, ...);
void LDebugTraceFunctionF(const char* szFunction, bool bError, const WCHAR* szFormat, ...);

// Formatted lines of at most 511 characters; longer ones are cut without a report.
void LDebugTraceF(const char* szFormat, ...);
void LDebugTraceErrorF(const char* szFormat, ...);

// The prefix and the system's own text for a Win32 error code (it ends in CR LF). Writes nothing when the
// system knows no text.
void LDebugTraceSystemError(const char* szPrefix, DWORD uError);

// --- Assertion reports and run-time checks ---

// The caller has found the condition false and carries on after the report.
void LDebugAssertFailed(const char* szFunction, const char* szExpression, const char* szFile,
                        std::int32_t nLine);
void LDebugCheckFailed(const char* szExpression, const char* szMessage, const char* szFile,
                       std::int32_t nLine);

void LDebugValidPtrRead(const void* p);
void LDebugValidPtrWrite(const void* p);
void LDebugValidWin32String(const WCHAR* sz);
void LDebugCheckMemoryWriteable(void* p);

// A pointer about to be read or written; null is reported, nothing else is looked at.
#define LDEBUGVALIDPTRREAD(p) LDebugValidPtrRead(p)
#define LDEBUGVALIDPTRWRITE(p) LDebugValidPtrWrite(p)
// A wide string about to be passed to the system; an odd address is reported.
#define LDEBUGVALIDWIN32STRINGF(sz) LDebugValidWin32String(sz)
// A buffer about to be filled; memory that is not exactly committed read-write is reported.
#define LCHECKMEMORYWRITEABLE(p) LDebugCheckMemoryWriteable(p)
// Mark where a heap pointer or a short string is required. Without effect in this build.
#define LDEBUGMUSTBEHEAPPTR(p) static_cast<void>(p)
#define LDEBUGMUSTBESHORTSTR(sz) static_cast<void>(sz)

// --- Tracked allocation ---

// Every heap object and buffer is made by these forms and released by delete or delete[]. They give null
// when the memory cannot be had; the new expression then runs no constructor and is null, too. File and
// function are kept as pointers: pass string constants.
void* operator new(std::size_t uSize, const char* szFile, const char* szFunction,
                   std::int32_t nLine) noexcept;
void* operator new[](std::size_t uSize, const char* szFile, const char* szFunction,
                     std::int32_t nLine) noexcept;
// Counterparts that the language asks for; constructors do not throw here.
void operator delete(void* p, const char* szFile, const char* szFunction, std::int32_t nLine) noexcept;
void operator delete[](void* p, const char* szFile, const char* szFunction, std::int32_t nLine) noexcept;

// LNEW("Class::Function") Type(…): a new expression tagged with this place in the source. Support reads leak
// lines by the tag (contract.md T31).
#define LNEW(szFunction) new (__FILE__, szFunction, __LINE__)

// Excuses a live block of the tracked forms from the leak report: for what lives until unload by design.
void LDebugHeapIgnoreLeak(void* p, std::size_t uSize);
