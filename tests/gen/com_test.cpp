// The frame of the COM objects: reference counts, registry of live objects, holder, class factory.

#include <cstdint>
#include <string>

#include <gmock/gmock.h>

#include <shlobj.h>

#include "gen/com.h"
#include "tests/standin/plainallocation.h"
#include "tests/support/reports.h"

namespace comtest
{
int g_alive = 0;

// One interface: a factory, as the module's own.
class One : public LComImplementation<IClassFactory>
{
  public:
    One() { ++g_alive; }
    ~One() override { --g_alive; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        const bool known = LIsEqualGuid(riid, IID_IUnknown) || LIsEqualGuid(riid, IID_IClassFactory);
        *ppv = known ? this : nullptr;
        return known ? AddRef(), S_OK : E_NOINTERFACE;
    }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID, void**) override { return E_FAIL; }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

class Two : public LComImplementation2<IClassFactory, IShellExtInit>
{
  public:
    Two() { ++g_alive; }
    ~Two() override { --g_alive; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID, void**) override { return E_FAIL; }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Initialize(PCIDLIST_ABSOLUTE, IDataObject*, HKEY) override { return E_NOTIMPL; }
};
} // namespace comtest

namespace
{
using namespace sndxtest;
using comtest::g_alive;
using comtest::One;
using comtest::Two;
using ::testing::ElementsAre;

constexpr char tooOften[] =
    "**LComImplementation<I>::Release is being called too often (check AddRefs and Releases match)";
constexpr char alreadyDeleted[] =
    "**LComImplementation<I>::Release called on an object which possibly has already been deleted!";
constexpr char prematurely[] = "**LComImplementation<I>::~LComImplementation() is being deleted prematurely";
constexpr char deletedTwice[] = "**LComDiagnostic::ObjectDelete Possible attempt to delete an object twice!";
constexpr char noObject[] = "**LComInterfaceRef<T>::operator->() - attempting to dereference a NULL object";

constexpr char noImplementation[] = "**LComObject<class comtest::One>::LComObject ASSERTION FAILED "
                                    "pNewImplementation != NULL:\r\n   gen/com.h(755)";
std::string Decimal(const void* p)
{
    return std::to_string(static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(p)));
}

std::string Created(const void* p)
{
    return "LComDiagnostic::ObjectCreate this=" + Decimal(p);
}

template <class T>
class ComObjectTest : public ::testing::Test
{
};
using Implementations = ::testing::Types<One, Two>;
TYPED_TEST_SUITE(ComObjectTest, Implementations);

TYPED_TEST(ComObjectTest, CountsReferencesAndDeletesItselfAtZero)
{
    const TraceCapture trace;
    auto* object = new TypeParam;
    EXPECT_TRUE(g_ComDiagnostic.ObjectExists(object));
    EXPECT_EQ(object->AddRef(), 1u);
    EXPECT_EQ(object->AddRef(), 2u);
    EXPECT_EQ(object->Release(), 1u);
    EXPECT_EQ(g_alive, 1);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_EQ(g_alive, 0);
    EXPECT_FALSE(g_ComDiagnostic.AnyObjectExists());
    EXPECT_THAT(trace.Texts(), ElementsAre(Created(object)));
}

TYPED_TEST(ComObjectTest, MisuseIsReportedAndCarriesOn)
{
    auto* object = new TypeParam;
    EXPECT_THAT(Traced([&] { EXPECT_EQ(object->Release(), 0xFFFFFFFFu); }), ElementsAre(tooOften));
    EXPECT_EQ(g_alive, 1);
    EXPECT_EQ(object->AddRef(), 0u);
    object->AddRef();
    EXPECT_THAT(Traced([&] { delete object; }), ElementsAre(prematurely));
    EXPECT_FALSE(g_ComDiagnostic.AnyObjectExists());

    object = new TypeParam;
    object->AddRef();
    g_ComDiagnostic.ObjectDelete(object);
    EXPECT_THAT(Traced([&] { EXPECT_EQ(object->Release(), 0u); }), ElementsAre(alreadyDeleted, deletedTwice));
    EXPECT_EQ(g_alive, 0);
}

TEST(ComObject, BothInterfacesShareOneCount)
{
    auto* object = new Two;
    IClassFactory* first = object;
    IShellExtInit* second = object;
    EXPECT_EQ(static_cast<void*>(first), static_cast<void*>(object));
    EXPECT_EQ(static_cast<void*>(second), reinterpret_cast<char*>(first) + sizeof(void*));
    EXPECT_EQ(first->AddRef(), 1u);
    EXPECT_EQ(second->AddRef(), 2u);
    EXPECT_EQ(first->Release(), 1u);
    EXPECT_EQ(second->Release(), 0u);
    EXPECT_EQ(g_alive, 0);
    static_assert(sizeof(LComImplementation<IClassFactory>) == sizeof(void*) + 8);
    static_assert(sizeof(LComImplementation2<IClassFactory, IShellExtInit>) == 2 * sizeof(void*) + 8);
}

TEST(ComRegistry, FindsEachOfSeveralObjectsBelowAnotherLock)
{
    LComDiagnostic registry;
    int objects[3] = {};
    const TraceCapture trace;
    const auto locked = [](const auto& operation)
    {
        LLockObject other;
        const LLockObjectScope lock(other);
        return operation();
    };
    const auto existing = [&]
    {
        std::string result;
        for (const int& object : objects)
        {
            result += locked([&] { return registry.ObjectExists(&object); }) ? '+' : '-';
        }
        return result + (locked([&] { return registry.AnyObjectExists(); }) ? " any" : "");
    };
    for (const int& object : objects)
    {
        EXPECT_TRUE(locked([&] { return registry.ObjectCreate(&object, TEXT("x")); }));
    }
    EXPECT_EQ(existing(), "+++ any");
    for (const auto& [index, left] : {std::pair{1, "+-+ any"}, {0, "--+ any"}, {2, "---"}})
    {
        locked([&] { registry.ObjectDelete(&objects[index]); });
        EXPECT_EQ(existing(), left);
    }
    EXPECT_THAT(trace.Texts(), ElementsAre(Created(&objects[0]), Created(&objects[1]), Created(&objects[2])));
    EXPECT_THAT(Traced([&] { registry.ObjectDelete(&objects[0]); }), ElementsAre(deletedTwice));
}

TEST(ComRegistry, ReportsAtItsEndWhatWasNotReleased)
{
    int objects[2] = {};
    TraceCapture trace;
    {
        LComDiagnostic registry;
        registry.ObjectCreate(&objects[0], TEXT("LComImplementation"));
        registry.ObjectCreate(&objects[1], Wide(std::string(300, 'n')).c_str());
        trace.Restart();
    }
    const std::string prefix = "**LComDiagnostic::~LComDiagnostic ";
    const std::string report = prefix + "COM Object has not been properly released!";
    EXPECT_THAT(trace.Texts(), ElementsAre("LComDiagnostic::~LComDiagnostic", report,
                                           prefix + "szObjectName=" + std::string(259, 'n'),
                                           prefix + "this=" + Decimal(&objects[1]), report,
                                           prefix + "szObjectName=LComImplementation",
                                           prefix + "this=" + Decimal(&objects[0])));
}

TEST(ComHolder, UseUntestedAndOfNullIsReported)
{
    const TraceCapture trace;
    EXPECT_EQ(LComInterfaceRef<One>().operator->(), nullptr);
    EXPECT_EQ(LComObject<One>(nullptr).operator->(), nullptr);
    EXPECT_THAT(trace.Texts(),
                ElementsAre("**LComInterfaceRef<T>::operator->() - attempting to dereference a COM "
                            "object without testing it first",
                            noObject, noImplementation, noObject));
}

TEST(ComFactory, WithoutMemoryNothingIsHandedOut)
{
    LComObject<LComClassFactory<One>> factory(new LComClassFactory<One>);
    for (const auto& [failing, reports] :
         {std::pair{0, Lines{noImplementation}}, {1, Lines()}}) // registration
    {
        TraceCapture trace;
        void* out = &trace;
        FailAllocation(failing);
        EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, &out), E_OUTOFMEMORY);
        EXPECT_EQ(out, nullptr);
        Lines errors = trace.Texts();
        std::erase_if(errors, [](const std::string& text) { return !text.starts_with("**"); });
        EXPECT_EQ(errors, reports);
    }
}

TEST(ComGuid, TraceLineInGroups)
{
    const GUID guid = {0x12345678, 0x9ABC, 0x0DEF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
    EXPECT_THAT(Traced([&] { LDebugTraceGuid(guid); }),
                ElementsAre("GUID = 12345678 9abc 0def 0123 456789abcdef"));
}
} // namespace
