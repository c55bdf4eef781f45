// Class objects, identity and counting, for every kind of object that the module hands out.

#include <atomic>
#include <thread>

#include "tests/dll/modulehost.h"

using namespace sndxtest;

namespace
{
char somewhere = 0;
void* const untouched = &somewhere; // an address that no call may leave behind

struct Class
{
    GUID id;
    const char* guidLine;
    std::vector<IID> offered; // the first two give the identity pointer
    std::vector<IID> refused;
};

class ModuleClasses : public ModuleTest, public testing::WithParamInterface<const char*>
{
  protected:
    const Class class_ = std::string(GetParam()) == "menu"
                             ? Class{menuClass,
                                     "GUID = 75c582e7 666b 4191 9085 2b1f99d4cbcc",
                                     {IID_IUnknown, IID_IContextMenu, IID_IShellExtInit},
                                     {IID_IClassFactory, IID_IShellIconOverlayIdentifier}}
                             : Class{overlayClass,
                                     "GUID = 041c6567 1ab1 4b57 bd0f d91ac46b973b",
                                     {IID_IUnknown, IID_IShellIconOverlayIdentifier},
                                     {IID_IClassFactory, IID_IContextMenu, IID_IShellExtInit}};
};
using ModuleUnload = ModuleTest;

IUnknown* AsUnknown(void* pointer)
{
    return static_cast<IUnknown*>(pointer);
}
} // namespace

TEST_P(ModuleClasses, FactoriesAreReleasedByTheirOnlyReferenceAndMakeNothingElse)
{
    Module module;
    for (const IID& interfaceId : {IID_IUnknown, IID_IClassFactory})
    {
        IClassFactory* factory = nullptr;
        const TraceCapture trace;
        ASSERT_EQ(module.GetClassObject(class_.id, interfaceId, reinterpret_cast<void**>(&factory)), S_OK);
        EXPECT_EQ(trace.Texts(), (Lines{class_.guidLine, ObjectLine(factory)}));
        for (const IID& refused : class_.refused)
        {
            void* out = untouched;
            EXPECT_EQ(factory->CreateInstance(nullptr, refused, &out), E_NOINTERFACE);
            EXPECT_EQ(out, nullptr);
        }
        // Aggregation is refused before anything is made.
        const TraceCapture silent;
        void* out = untouched;
        EXPECT_EQ(factory->CreateInstance(factory, IID_IUnknown, &out), CLASS_E_NOAGGREGATION);
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
        EXPECT_EQ(factory->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
        EXPECT_EQ(factory->LockServer(TRUE), S_OK); // counts nothing
        EXPECT_EQ(module.CanUnloadNow(), S_FALSE);
        EXPECT_EQ(factory->Release(), 0u);
        EXPECT_EQ(module.CanUnloadNow(), S_OK);
        EXPECT_EQ(silent.Texts(), Lines());
    }
    void* out = untouched;
    EXPECT_EQ(module.GetClassObject(class_.id, class_.offered[1], &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(module.GetClassObject(class_.id, IID_IClassFactory, nullptr), E_POINTER);
    GUID unknown = class_.id;
    unknown.Data4[7] ^= 1;
    out = untouched;
    EXPECT_EQ(module.GetClassObject(unknown, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(module.CanUnloadNow(), S_OK); // the factory is gone again
    module.Free();                          // and no block is left behind
    EXPECT_EQ(LastLines(WholeTrace()), ClosingLines());
}

TEST_P(ModuleClasses, InterfacesOfAnObjectShareItsIdentityAndItsCountWhichKeepsTheModuleLoaded)
{
    const Module module;
    void* identity = nullptr;
    ASSERT_EQ(module.Factory(class_.id)->CreateInstance(nullptr, IID_IUnknown, &identity), S_OK);
    const TraceCapture trace;
    std::vector<void*> pointers;
    for (std::size_t i = 0; i < class_.offered.size(); ++i)
    {
        // The initialising interface of the menu lies one table pointer behind the identity.
        pointers.push_back(i < 2 ? identity : static_cast<void**>(identity) + 1);
    }
    for (void* pointer : pointers) // from every interface to every other
    {
        void* out = nullptr;
        for (std::size_t i = 0; i < class_.offered.size(); ++i)
        {
            ASSERT_EQ(AsUnknown(pointer)->QueryInterface(class_.offered[i], &out), S_OK);
            EXPECT_EQ(out, pointers[i]);
            EXPECT_EQ(AsUnknown(out)->Release(), 1u);
        }
        for (const IID& interfaceId : class_.refused)
        {
            out = untouched;
            EXPECT_EQ(AsUnknown(pointer)->QueryInterface(interfaceId, &out), E_NOINTERFACE);
            EXPECT_EQ(out, nullptr);
        }
        EXPECT_EQ(AsUnknown(pointer)->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    }
    EXPECT_EQ(trace.Texts().empty(), pointers.size() == 2); // only the menu traces its queries
    EXPECT_EQ(AsUnknown(pointers.back())->AddRef(), 2u);
    EXPECT_EQ(AsUnknown(identity)->Release(), 1u);
    EXPECT_EQ(module.CanUnloadNow(), S_FALSE);
    EXPECT_EQ(AsUnknown(pointers.back())->Release(), 0u);
    EXPECT_EQ(module.CanUnloadNow(), S_OK);
}

INSTANTIATE_TEST_SUITE_P(Classes, ModuleClasses, testing::Values("overlay", "menu"));

// The counters are plain integers and may lose a step between two threads; the answer must not.
TEST_F(ModuleUnload, IsNeverOfferedWhileAnyThreadHoldsAnObject)
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
                    Check("CreateInstance", factory->CreateInstance(nullptr, IID_IUnknown, object.Receive()));
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
