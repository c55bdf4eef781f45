// Class objects, identity and counting, for every kind of object that the module hands out.

#include <thread>

#include "tests/dll/modulehost.h"

using namespace sndxtest;

namespace
{
using ModuleClasses = ModuleTest;

char somewhere = 0;
void* const untouched = &somewhere; // an address that no call may leave behind

struct ClassCase
{
    const char* name;
    GUID classId;
    const char* guidLine;
    std::vector<IID> offered; // the first two give the identity pointer
    std::vector<IID> refused;
};

const std::vector<ClassCase>& Classes()
{
    static const std::vector<ClassCase> classes = {
        {"overlay",
         overlayClass,
         overlayGuidLine,
         {IID_IUnknown, IID_IShellIconOverlayIdentifier},
         {IID_IClassFactory, IID_IContextMenu, IID_IShellExtInit}},
        {"menu",
         menuClass,
         menuGuidLine,
         {IID_IUnknown, IID_IContextMenu, IID_IShellExtInit},
         {IID_IClassFactory, IID_IShellIconOverlayIdentifier, IID_IDataObject}},
    };
    return classes;
}

ULONG ReleaseThrough(void* pointer)
{
    return static_cast<IUnknown*>(pointer)->Release();
}
} // namespace

TEST_F(ModuleClasses, FactoriesOfferTheirTwoInterfacesAndAreReleasedByTheirOnlyReference)
{
    const Module module;
    for (const ClassCase& c : Classes())
    {
        SCOPED_TRACE(c.name);
        for (const IID& interfaceId : {IID_IUnknown, IID_IClassFactory})
        {
            void* factory = nullptr;
            const TraceCapture trace;
            ASSERT_EQ(module.GetClassObject(c.classId, interfaceId, &factory), S_OK);
            EXPECT_THAT(trace.Texts(), AreLines({c.guidLine, ObjectLine(factory)}));
            EXPECT_EQ(module.CanUnloadNow(), S_FALSE);
            void* again = untouched;
            EXPECT_EQ(static_cast<IUnknown*>(factory)->QueryInterface(IID_IClassFactory, &again), S_OK);
            EXPECT_EQ(again, factory);
            EXPECT_EQ(static_cast<IUnknown*>(factory)->AddRef(), 3u);
            for (ULONG left = 3; left > 0; --left)
            {
                EXPECT_EQ(module.CanUnloadNow(), S_FALSE);
                EXPECT_EQ(ReleaseThrough(factory), left - 1);
            }
            EXPECT_EQ(module.CanUnloadNow(), S_OK);
        }
        for (const IID& interfaceId : c.offered)
        {
            if (interfaceId == IID_IUnknown)
            {
                continue;
            }
            void* out = untouched;
            EXPECT_EQ(module.GetClassObject(c.classId, interfaceId, &out), E_NOINTERFACE);
            EXPECT_EQ(out, nullptr);
            EXPECT_EQ(module.CanUnloadNow(), S_OK); // the factory is gone again
        }
        EXPECT_EQ(module.GetClassObject(c.classId, IID_IClassFactory, nullptr), E_POINTER);
    }
}

TEST_F(ModuleClasses, UnknownClassesAreRefused)
{
    const Module module;
    for (const GUID& classId : {unknownClass, IID_IClassFactory, GUID{}})
    {
        void* out = untouched;
        EXPECT_EQ(module.GetClassObject(classId, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
        EXPECT_EQ(out, nullptr);
    }
    EXPECT_EQ(module.CanUnloadNow(), S_OK);
}

TEST_F(ModuleClasses, ObjectsAreMadeOfOfferedInterfacesOnly)
{
    Module module;
    for (const ClassCase& c : Classes())
    {
        SCOPED_TRACE(c.name);
        const auto factory = module.Factory(c.classId);
        for (const IID& interfaceId : c.offered)
        {
            ComRef<IUnknown> object;
            EXPECT_EQ(factory->CreateInstance(nullptr, interfaceId, object.Receive()), S_OK);
            EXPECT_NE(object.Get(), nullptr);
        }
        const TraceCapture trace;
        for (const IID& interfaceId : c.refused)
        {
            void* out = untouched;
            EXPECT_EQ(factory->CreateInstance(nullptr, interfaceId, &out), E_NOINTERFACE);
            EXPECT_EQ(out, nullptr);
        }
        for (const TraceLine& line : trace.Lines())
        {
            EXPECT_FALSE(line.error) << line.text;
        }
        // Aggregation is refused before anything is made.
        const TraceCapture silent;
        void* out = untouched;
        EXPECT_EQ(factory->CreateInstance(factory.Get(), IID_IUnknown, &out), CLASS_E_NOAGGREGATION);
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
        EXPECT_THAT(silent.Texts(), testing::IsEmpty());
    }
    EXPECT_EQ(module.CanUnloadNow(), S_OK);
    module.Free(); // what was refused has left no block behind
    const Lines all = WholeTrace();
    EXPECT_THAT(Lines(all.end() - 3, all.end()), AreLines(ClosingLines()));
}

TEST_F(ModuleClasses, EveryKindOfObjectKeepsTheModuleLoadedUntilItsLastRelease)
{
    const Module module;
    for (const ClassCase& c : Classes())
    {
        SCOPED_TRACE(c.name);
        auto factory = module.Factory(c.classId);
        for (const BOOL lock : {TRUE, FALSE, TRUE})
        {
            EXPECT_EQ(factory->LockServer(lock), S_OK);
        }
        void* object = nullptr;
        ASSERT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, &object), S_OK);
        void* second = nullptr;
        ASSERT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, &second), S_OK);
        EXPECT_NE(object, second);
        factory.Reset();
        EXPECT_EQ(module.CanUnloadNow(), S_FALSE);
        EXPECT_EQ(ReleaseThrough(second), 0u);
        EXPECT_EQ(module.CanUnloadNow(), S_FALSE);
        EXPECT_EQ(ReleaseThrough(object), 0u);
        EXPECT_EQ(module.CanUnloadNow(), S_OK); // the locks above count nothing
    }
}

TEST_F(ModuleClasses, InterfacesOfAnObjectShareItsIdentityAndItsCount)
{
    const Module module;
    for (const ClassCase& c : Classes())
    {
        SCOPED_TRACE(c.name);
        void* identity = nullptr;
        ASSERT_EQ(module.Factory(c.classId)->CreateInstance(nullptr, IID_IUnknown, &identity), S_OK);
        std::vector<void*> pointers;
        for (std::size_t i = 0; i < c.offered.size(); ++i)
        {
            void* out = nullptr;
            ASSERT_EQ(static_cast<IUnknown*>(identity)->QueryInterface(c.offered[i], &out), S_OK);
            // The initialising interface of the menu lies one table pointer behind the identity.
            EXPECT_EQ(out, i < 2 ? identity : static_cast<void**>(identity) + 1);
            pointers.push_back(out);
        }
        for (void* pointer : pointers)
        {
            auto* unknown = static_cast<IUnknown*>(pointer);
            for (const IID& interfaceId : c.offered) // from every interface to every other
            {
                void* out = nullptr;
                ASSERT_EQ(unknown->QueryInterface(interfaceId, &out), S_OK);
                EXPECT_EQ(out,
                          interfaceId == IID_IShellExtInit ? static_cast<void**>(identity) + 1 : identity);
                ReleaseThrough(out);
            }
            for (const IID& interfaceId : c.refused)
            {
                void* out = untouched;
                EXPECT_EQ(unknown->QueryInterface(interfaceId, &out), E_NOINTERFACE);
                EXPECT_EQ(out, nullptr);
            }
            EXPECT_EQ(unknown->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
        }
        const auto references = static_cast<ULONG>(pointers.size()) + 1;
        EXPECT_EQ(static_cast<IUnknown*>(pointers.back())->AddRef(), references + 1);
        EXPECT_EQ(ReleaseThrough(identity), references);
        for (ULONG left = references; left > 1; --left)
        {
            EXPECT_EQ(ReleaseThrough(pointers[left % pointers.size()]), left - 1);
        }
        EXPECT_EQ(ReleaseThrough(pointers.back()), 0u);
        EXPECT_EQ(module.CanUnloadNow(), S_OK);
    }
}

TEST_F(ModuleClasses, OnlyTheMenuTracesItsQueries)
{
    const Module module;
    const auto overlay = module.Create<IUnknown>(overlayClass, IID_IUnknown);
    const auto menu = module.Create<IUnknown>(menuClass, IID_IUnknown);
    const TraceCapture trace;
    void* out = nullptr;
    for (const IID& interfaceId : {IID_IShellExtInit, IID_IUnknown, IID_IDataObject})
    {
        EXPECT_EQ(overlay->QueryInterface(interfaceId, &out),
                  interfaceId == IID_IUnknown ? S_OK : E_NOINTERFACE);
        EXPECT_EQ(menu->QueryInterface(interfaceId, &out),
                  interfaceId == IID_IDataObject ? E_NOINTERFACE : S_OK);
    }
    const std::string query = "LSendoraContextMenu::QueryInterface ";
    EXPECT_THAT(trace.Texts(), AreLines({query, "GUID = 000214e8 0000 0000 c000 000000000046", query,
                                         "GUID = 00000000 0000 0000 c000 000000000046", query,
                                         "GUID = 0000010e 0000 0000 c000 000000000046"}));
    overlay->Release();
    menu->Release();
    menu->Release();
}

// The counters are plain integers and may lose a step between two threads; the answer must not.
TEST_F(ModuleClasses, ModuleIsNeverGivenUpWhileAnyThreadHoldsAnObject)
{
    const Module module;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (const CLSID* const classId : {&overlayClass, &menuClass, &overlayClass})
    {
        threads.emplace_back(
            [&module, &wrong, classId]
            {
                for (int round = 0; round < 25; ++round)
                {
                    auto factory = module.Factory(*classId);
                    wrong += module.CanUnloadNow() == S_OK ? 1 : 0;
                    ComRef<IUnknown> object;
                    Module::Check(factory->CreateInstance(nullptr, IID_IUnknown, object.Receive()));
                    factory.Reset();
                    wrong += module.CanUnloadNow() == S_OK ? 1 : 0;
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}
