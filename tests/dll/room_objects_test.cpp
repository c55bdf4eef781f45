// Class factories, objects, selection and request when memory runs out at any of their allocations.

#include "dll/classfactories.h"
#include "dll/request.h"
#include "tests/dll/roomfixture.h"

using namespace sndxtest;
using testing::StartsWith;

namespace
{
using RoomObjects = RoomTest;

struct Made
{
    HRESULT result;
    void* out;
};

// As a class factory makes an object, with the allocation number `failing` (0 the first) refused.
template <class T>
Made CreateFailing(int failing)
{
    LComObject<LComClassFactory<T>> factory(LNEW("test") LComClassFactory<T>);
    Made made = {S_OK, &made};
    FailAllocation(failing);
    made.result = factory->CreateInstance(nullptr, IID_IUnknown, &made.out);
    FailAllocation(0, 0);
    return made;
}

std::string AssertionOf(const std::string& className)
{
    return "**LComObject<class " + className +
           ">::LComObject ASSERTION FAILED pNewImplementation != NULL:\r\n   gen/com";
}

std::vector<std::string> Errors(const TraceCapture& trace)
{
    std::vector<std::string> errors;
    for (const std::string& text : trace.Texts())
    {
        if (text.starts_with("**"))
        {
            errors.push_back(text);
        }
    }
    return errors;
}
} // namespace

TEST_F(RoomObjects, ObjectWithoutMemoryIsReportedAndNotHandedOut)
{
    TraceCapture trace;
    const auto overlay = CreateFailing<LShellExt>(0);
    EXPECT_EQ(overlay.result, E_OUTOFMEMORY);
    EXPECT_EQ(overlay.out, nullptr);
    ASSERT_EQ(Errors(trace).size(), 1u);
    EXPECT_THAT(Errors(trace)[0], StartsWith(AssertionOf("LShellExt")));
    EXPECT_THAT(Errors(trace)[0], testing::EndsWith("(755)"));
    trace.Restart();
    const auto menu = CreateFailing<LSendoraContextMenu>(0);
    EXPECT_EQ(menu.result, E_OUTOFMEMORY);
    EXPECT_EQ(menu.out, nullptr);
    ASSERT_EQ(Errors(trace).size(), 1u);
    EXPECT_THAT(Errors(trace)[0], StartsWith(AssertionOf("LSendoraContextMenu")));

    trace.Restart();
    void* out = &out;
    LComObject<LClassFactory> factory(nullptr); // as DllGetClassObject holds it
    EXPECT_EQ(factory.QueryNew(IID_IUnknown, &out), E_OUTOFMEMORY);
    EXPECT_EQ(out, nullptr);
    ASSERT_EQ(Errors(trace).size(), 1u);
    EXPECT_THAT(Errors(trace)[0], StartsWith(AssertionOf("LClassFactory")));
    EXPECT_FALSE(g_ComDiagnostic.AnyObjectExists());
}

TEST_F(RoomObjects, ObjectThatCannotBeRegisteredIsNotHandedOut)
{
    const TraceCapture trace;
    for (const Made& made : {CreateFailing<LShellExt>(1), CreateFailing<LSendoraContextMenu>(1)})
    {
        EXPECT_EQ(made.result, E_OUTOFMEMORY);
        EXPECT_EQ(made.out, nullptr);
    }
    {
        FailAllocation(1);
        LComObject<LClassFactory> factory(LNEW("test") LClassFactory);
        EXPECT_EQ(g_nFactoryObjects, 1);
        void* out = &out;
        EXPECT_EQ(factory.QueryNew(IID_IUnknown, &out), E_OUTOFMEMORY);
        EXPECT_EQ(out, nullptr);
    }
    EXPECT_EQ(g_nFactoryObjects, 0);
    EXPECT_EQ(g_nShellExtObjects, 0);
    EXPECT_FALSE(g_ComDiagnostic.AnyObjectExists());
    EXPECT_THAT(Errors(trace), testing::IsEmpty()); // neither released too often nor deleted twice
}

TEST_F(RoomObjects, CountersFollowOverlayFactoriesAndOverlaysOnly)
{
    {
        LComObject<LClassFactory> factory(LNEW("test") LClassFactory);
        LComObject<LSendoraContextMenuClassFactory> menuFactory(LNEW("test") LSendoraContextMenuClassFactory);
        EXPECT_EQ(g_nFactoryObjects, 1);
        void* overlay = nullptr;
        void* menu = nullptr;
        EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, &overlay), S_OK);
        EXPECT_EQ(menuFactory->CreateInstance(nullptr, IID_IUnknown, &menu), S_OK);
        EXPECT_EQ(g_nShellExtObjects, 1);
        static_cast<IUnknown*>(overlay)->Release();
        EXPECT_EQ(g_nShellExtObjects, 0);
        EXPECT_TRUE(g_ComDiagnostic.ObjectExists(menu));
        static_cast<IUnknown*>(menu)->Release();
        EXPECT_FALSE(g_ComDiagnostic.ObjectExists(menu));
    }
    EXPECT_EQ(g_nFactoryObjects, 0);
}

TEST_F(RoomObjects, SelectionThatDoesNotFitIntoMemoryIsRefusedAsAWhole)
{
    g_FolderList.DeleteAll();
    LComObject<LSendoraContextMenu> menu(LNEW("test") LSendoraContextMenu);
    const auto data = MakeDropDataObject({"C:\\A\\1", "C:\\A\\2", "C:\\A\\3"}, {.withOwner = true});
    const TraceCapture trace;
    FailAllocation(1); // the second path's copy
    EXPECT_EQ(menu->Initialize(nullptr, data.get(), nullptr), E_OUTOFMEMORY);
    FailAllocation(0, 0);
    EXPECT_EQ(DropDataObject::LiveMediums(), 0);
    const std::string initialize = "LSendoraContextMenu::Initialize ";
    const auto texts = trace.Texts();
    ASSERT_GE(texts.size(), 3u);
    EXPECT_EQ(std::vector<std::string>(texts.begin(), texts.begin() + 3),
              (std::vector<std::string>{initialize, initialize + "C:\\A\\1", initialize + "C:\\A\\2"}));
    EXPECT_EQ(menu->Initialize(nullptr, data.get(), nullptr), S_OK);
}

TEST_F(RoomObjects, HandlerWithoutItsListsArrayTriesAgain)
{
    FailAllocation(2); // object, its registration, the array
    LComObject<LSendoraContextMenu> menu(LNEW("test") LSendoraContextMenu);
    FailAllocation(0, 0);
    std::vector<std::string> paths;
    for (int i = 0; i < 20; ++i) // beyond the small array of the second try
    {
        paths.push_back("C:\\A\\" + std::to_string(i));
    }
    EXPECT_EQ(menu->Initialize(nullptr, MakeDropDataObject(paths).get(), nullptr), S_OK);
    AddAccount("A", "C:\\A");
    StateChanged();
    const HMENU shellMenu = CreatePopupMenu();
    EXPECT_EQ(menu->QueryContextMenu(shellMenu, 0, 1, 9, CMF_NORMAL), 3);
    DestroyMenu(shellMenu);
}

TEST_F(RoomObjects, RequestWithoutMemoryTouchesNothing)
{
    const LStringList files;
    const TraceCapture trace;
    FailAllocation(0);
    EXPECT_EQ(SendRequest(0, files), E_OUTOFMEMORY);
    EXPECT_THAT(trace.Texts(), testing::IsEmpty()); // no setting read, no pipe tried
}

TEST_F(RoomObjects, MainProgramsPathComesFromTheUserOrElseTheMachine)
{
    const auto path = []
    {
        WCHAR buffer[LSTR] = {WCHAR{'#'}};
        GetSendoraPath(buffer);
        return Utf8(buffer);
    };
    EXPECT_EQ(path(), "");
    SetSharedString("Settings", "InstallerPath", "C:\\machine.exe");
    EXPECT_EQ(path(), "C:\\machine.exe");
    SetUserString("Settings", "InstallerPath", "");
    EXPECT_EQ(path(), "C:\\machine.exe");
    SetUserString("Settings", "InstallerPath", "C:\\user.exe");
    EXPECT_EQ(path(), "C:\\user.exe");
    const TraceCapture trace;
    GetSendoraPath(nullptr);
    EXPECT_EQ(trace.Texts(), std::vector<std::string>{"**GetSendoraPath Invalid input (nullptr)"});
}
