#pragma once
// The calls of the layer that the module makes: from which place in its sources each comes, and the choice of
// those that fail.

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>

#include <gtest/gtest.h>

#include "sndxposix.h"
#include "tests/support/text.h"

namespace sndxtest
{
// Return addresses inside the module, from its beginning, the innermost first. Empty for a call of somebody
// else's.
using Stack = std::vector<std::uintptr_t>;

inline Stack StackOfModule(std::string_view module)
{
    void* frames[64];
    const int count = backtrace(frames, 64);
    const auto objectOf = [&](int i) -> const link_map*
    {
        dl_find_object found;
        return i < count && _dl_find_object(frames[i], &found) == 0 ? found.dlfo_link_map : nullptr;
    };
    const auto isIn = [](const link_map* object, std::string_view name)
    { return object != nullptr && std::string_view(object->l_name).ends_with(name); };
    int i = 0;
    while (i < count && !isIn(objectOf(i), "/libsndxposix.so")) // the chooser
    {
        ++i;
    }
    while (isIn(objectOf(i), "/libsndxposix.so"))
    {
        ++i;
    }
    Stack stack;
    for (; isIn(objectOf(i), module); ++i)
    {
        stack.push_back(reinterpret_cast<std::uintptr_t>(frames[i]) - objectOf(i)->l_addr);
    }
    return stack;
}

// A function that a return address lies in, and its source; one that was inlined stands before the one that
// has it.
struct SourcePlace
{
    std::string function;
    std::string file;
};
using Places = std::map<std::uintptr_t, std::vector<SourcePlace>>;

// From the debug information of the module's file, by the compiler's own tool.
inline Places FindPlaces(const std::string& file, const std::set<std::uintptr_t>& addresses)
{
#ifdef __clang__
    constexpr char tool[] = "llvm-addr2line-19";
#else
    constexpr char tool[] = "addr2line";
#endif
    std::ostringstream command;
    command << tool << " -aCfi -e '" << file << "'" << std::hex;
    for (const std::uintptr_t address : addresses)
    {
        command << ' ' << address - 1; // of the call, not of what comes behind it
    }
    const std::unique_ptr<FILE, int (*)(FILE*)> output(popen(command.str().c_str(), "r"), &pclose);
    Places places;
    std::vector<SourcePlace>* current = nullptr;
    char line[4096];
    while (std::fgets(line, sizeof line, output.get()) != nullptr)
    {
        const std::string text(line, std::string_view(line).find_last_not_of('\n') + 1);
        if (text.starts_with("0x"))
        {
            current = &places[std::stoull(text, nullptr, 16) + 1];
        }
        else if (!current->empty() && current->back().file.empty())
        {
            // "build/native/dll/gen/list.h:12": the last two names of the path.
            const std::size_t name = text.rfind('/');
            const std::size_t folder = text.rfind('/', name - 1) + 1; // 0 when there is none
            current->back().file = text.substr(folder, text.find(':') - folder);
        }
        else
        {
            current->push_back({text, ""});
        }
    }
    EXPECT_EQ(places.size(), addresses.size()) << tool << " is needed";
    return places;
}

// A call of the module, told from others by its stack and the calls before it.
struct MadeCall
{
    std::string call;
    Stack stack;
    std::size_t before; // calls of the same stack before it
};

// What the chooser of failures has to do; one at a time.
struct Choice
{
    std::vector<MadeCall>* noted = nullptr; // takes every call of the module
    const MadeCall* failing = nullptr;      // the one call that fails …
    std::uint32_t error = 0;                // … with this error
    std::mt19937_64* random = nullptr;      // or one call in so many, with one of these errors
    std::map<std::string, std::vector<std::uint32_t>> errors = {};
    std::string what = {}; // for messages

    std::size_t met = 0; // calls like the failing one
    Lines failed = {};
};
inline Choice g_choice;

inline std::uint32_t Choose(const char* function)
{
    constexpr char module[] = "/sndxdll.so";
    if (g_choice.noted != nullptr)
    {
        Stack stack = StackOfModule(module);
        const auto isLike = [&](const MadeCall& call)
        { return call.call == function && call.stack == stack; };
        const auto before = std::count_if(g_choice.noted->begin(), g_choice.noted->end(), isLike);
        if (!stack.empty())
        {
            g_choice.noted->push_back({function, std::move(stack), static_cast<std::size_t>(before)});
        }
        return 0;
    }
    std::uint32_t error = 0;
    if (g_choice.failing != nullptr && g_choice.failing->call == function &&
        StackOfModule(module) == g_choice.failing->stack)
    {
        error = g_choice.met++ == g_choice.failing->before ? g_choice.error : 0;
    }
    if (g_choice.random != nullptr && (*g_choice.random)() % 50 == 0 &&
        g_choice.errors.count(function) != 0 && !StackOfModule(module).empty())
    {
        const auto& errors = g_choice.errors.at(function);
        error = errors[(*g_choice.random)() % errors.size()];
    }
    if (error != 0)
    {
        g_choice.failed.push_back(function);
        g_choice.what += std::string(" ") + function;
    }
    return error;
}

inline std::set<std::uintptr_t> AddressesOf(const std::vector<MadeCall>& calls)
{
    std::set<std::uintptr_t> addresses;
    for (const MadeCall& call : calls)
    {
        addresses.insert(call.stack.begin(), call.stack.end());
    }
    return addresses;
}

// From the call's own place outwards.
inline std::vector<SourcePlace> ChainOf(const MadeCall& call, const Places& places)
{
    std::vector<SourcePlace> chain;
    for (const std::uintptr_t address : call.stack)
    {
        const auto& found = places.at(address);
        chain.insert(chain.end(), found.begin(), found.end());
    }
    return chain;
}

inline std::string Shown(const std::string& call, const std::vector<SourcePlace>& chain)
{
    std::string text = " " + call;
    for (const SourcePlace& place : chain)
    {
        text += "\n  in " + place.function + " in " + place.file;
    }
    return text;
}
} // namespace sndxtest
