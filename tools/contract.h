#pragma once
// What the product has agreed upon with its surroundings, as those know it: tools and tests are to notice
// when the product leaves it. The registration is made from this file, and scripts/check-contract.sh compares
// the product and the scripts with it; both read the lines of the form 'name[] = "text"'.

#include <string_view>

#include <windows.h>

namespace sndxtools::contract
{
// The classes, as the installer registers them.
inline constexpr char overlayClassText[] = "{041C6567-1AB1-4B57-BD0F-D91AC46B973B}";
inline constexpr char menuClassText[] = "{75C582E7-666B-4191-9085-2B1F99D4CBCC}";

// The main program's control pipe.
inline constexpr char pipeName[] = "SendoraService";
// More options of the main program's stand-in, which the product starts without any; an environment variable.
inline constexpr char mainProgramOptions[] = "SENDORA_MAINPROGRAM_OPTIONS";

// The block of memory that holds the stamp of the settings, in the session's own namespace.
inline constexpr char stateBlockName[] = "SharedMemoryForsndxdll";
// In the user's roaming application-data folder: <prefix>NAME.txt.
inline constexpr char traceFilePrefix[] = "tracedll_Sendora";

// Below HKEY_CURRENT_USER, and below HKEY_LOCAL_MACHINE in the registry's 32-bit view.
inline constexpr char companyKey[] = "Software\\Taleno Software";
inline constexpr char productKey[] = "Software\\Taleno Software\\Sendora";

// A class identifier from its text of 38 characters.
consteval GUID ClassId(std::string_view text)
{
    const auto number = [text](std::size_t at, std::size_t digits)
    {
        unsigned long value = 0;
        for (const char c : text.substr(at, digits))
        {
            value = value * 16 + static_cast<unsigned long>(c <= '9' ? c - '0' : c - 'A' + 10);
        }
        return value;
    };
    GUID id = {};
    id.Data1 = static_cast<decltype(id.Data1)>(number(1, 8));
    id.Data2 = static_cast<WORD>(number(10, 4));
    id.Data3 = static_cast<WORD>(number(15, 4));
    for (std::size_t i = 0; i < 8; ++i)
    {
        id.Data4[i] = static_cast<BYTE>(number(i < 2 ? 20 + 2 * i : 21 + 2 * i, 2));
    }
    return id;
}
inline constexpr GUID overlayClass = ClassId(overlayClassText);
inline constexpr GUID menuClass = ClassId(menuClassText);
} // namespace sndxtools::contract
