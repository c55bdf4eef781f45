// The frame of the COM objects: what it reports of misuse, and the registry of live objects. Reference
// counts, identities and class factories are tested with the module's classes.

#include <cstdint>

#include "gen/com.h"
#include "tests/support/reports.h"

namespace comtest
{
int g_alive = 0;

struct First : IUnknown
{
};
struct Second : IUnknown
{
};

class One : public LComImplementation2<First, Second>
{
  public:
    One() { ++g_alive; }
    ~One() override { --g_alive; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
};

bool g_inUseAtTheEnd = false;

// Notes what a host is told while the memory of the last object is released.
class Last : public LComImplementation<First>
{
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void operator delete(void* p)
    {
        g_inUseAtTheEnd = g_ComDiagnostic.AnyObjectExists();
        ::operator delete(p);
    }
};
} // namespace comtest

namespace
{
using namespace sndxtest;
using comtest::g_alive;
using comtest::One;

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

TEST(ComObject, MisuseIsReportedAndCarriesOn)
{
    auto* object = new One;
    EXPECT_EQ(Traced([&] { EXPECT_EQ(object->Release(), 0xFFFFFFFFu); }), Lines{tooOften});
    EXPECT_EQ(g_alive, 1);
    EXPECT_EQ(object->AddRef(), 0u);
    object->AddRef();
    EXPECT_EQ(Traced([&] { delete object; }), Lines{prematurely});
    EXPECT_FALSE(g_ComDiagnostic.AnyObjectExists());

    object = new One;
    object->AddRef();
    g_ComDiagnostic.ObjectDelete(object);
    EXPECT_EQ(Traced([&] { EXPECT_EQ(object->Release(), 0u); }), (Lines{alreadyDeleted, deletedTwice}));
    EXPECT_EQ(g_alive, 0);
}

TEST(ComObject, KeepsTheModuleInUseUntilItsMemoryIsReleased)
{
    auto* last = new comtest::Last;
    last->AddRef();
    EXPECT_EQ(last->Release(), 0u);
    EXPECT_TRUE(comtest::g_inUseAtTheEnd);
    EXPECT_FALSE(g_ComDiagnostic.AnyObjectExists());
}

TEST(ComRegistry, FindsEachOfSeveralObjectsBelowAnotherLock)
{
    LComDiagnostic registry;
    int objects[3] = {};
    const TraceCapture trace;
    const auto below = [](const auto& operation)
    {
        LLockObject other;
        const LLockObjectScope lock(other);
        return operation();
    };
    const auto existing = [&]
    {
        std::string result = below([&] { return registry.AnyObjectExists(); }) ? "any " : "none ";
        for (const int& object : objects)
        {
            result += below([&] { return registry.ObjectExists(&object); }) ? '+' : '-';
        }
        return result;
    };
    for (const int& object : objects)
    {
        EXPECT_TRUE(below([&] { return registry.ObjectCreate(&object, TEXT("x")); }));
    }
    for (const auto& [index, before] : {std::pair{1, "any +++"}, {0, "any +-+"}, {2, "any --+"}})
    {
        EXPECT_EQ(existing(), before);
        const int* const object = &objects[index];
        below([&] { registry.ObjectDelete(object); });
    }
    EXPECT_EQ(existing(), "none ---");
    EXPECT_EQ(trace.Texts(), (Lines{Created(&objects[0]), Created(&objects[1]), Created(&objects[2])}));
    EXPECT_EQ(Traced([&] { registry.ObjectDelete(&objects[0]); }), Lines{deletedTwice});
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
    EXPECT_EQ(
        trace.Texts(),
        (Lines{"LComDiagnostic::~LComDiagnostic", report, prefix + "szObjectName=" + std::string(259, 'n'),
               prefix + "this=" + Decimal(&objects[1]), report, prefix + "szObjectName=LComImplementation",
               prefix + "this=" + Decimal(&objects[0])}));
}

TEST(ComHolder, UseUntestedAndOfNullIsReported)
{
    const TraceCapture trace;
    EXPECT_EQ(LComInterfaceRef<One>().operator->(), nullptr);
    EXPECT_EQ(LComObject<One>(nullptr).operator->(), nullptr);
    EXPECT_EQ(trace.Texts(), (Lines{"**LComInterfaceRef<T>::operator->() - attempting to dereference a COM "
                                    "object without testing it first",
                                    noObject, noImplementation, noObject}));
}
} // namespace
