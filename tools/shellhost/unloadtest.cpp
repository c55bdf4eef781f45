#include "tools/shellhost/commands.h"

namespace sndxtools
{
namespace
{
// Shows after each step what the module says about being unloaded, and judges the answers that matter.
class UnloadTest
{
  public:
    UnloadTest(Host& host, std::ostream& out) : host_(host), out_(out) {}

    void Run()
    {
        Show("loaded", Expected::yes);
        Lifetime("overlay", contract::overlayClass, IID_IShellIconOverlayIdentifier);
        Lifetime("context menu", contract::menuClass, IID_IContextMenu);
        const bool unloaded = host_.UnloadModule();
        passed_ = passed_ && unloaded;
        out_ << (unloaded ? "library freed\n" : "library freed, but it is still loaded\n");
        host_.LoadedModule();
        Show("library loaded again", Expected::yes);
    }

    int ExitCodeOfAnswers() const { return passed_ ? exitAnswered : exitRefused; }

  private:
    enum class Expected
    {
        yes,
        no,
        either
    };

    void Lifetime(const std::string& name, const CLSID& classId, REFIID iid)
    {
        ComRef<IClassFactory> factory = host_.LoadedModule().ClassFactory(classId);
        // Whether a factory alone keeps a module is up to the module.
        Show(name + " factory created", Expected::either);
        ComRef<IUnknown> object;
        const HRESULT created = factory->CreateInstance(nullptr, iid, object.Receive());
        Check("CreateInstance", created, bool(object));
        Show(name + " object created", Expected::no);
        factory.Reset();
        Show(name + " factory released", Expected::no);
        object.Reset();
        Show(name + " object released", Expected::yes);
    }

    void Show(const std::string& step, Expected expected)
    {
        const HRESULT answer = host_.LoadedModule().CanUnloadNow();
        out_ << step << ": DllCanUnloadNow answers " << ResultText(answer);
        const bool wrong = (answer != S_OK && answer != S_FALSE) ||
                           (expected == Expected::yes && answer == S_FALSE) ||
                           (expected == Expected::no && answer == S_OK);
        if (wrong)
        {
            passed_ = false;
            out_ << (answer == S_OK ? ", but an object is alive" : ", but nothing is alive");
        }
        out_ << "\n";
    }

    Host& host_;
    std::ostream& out_;
    bool passed_ = true;
};
} // namespace

int UnloadTestCommand(Host& host, std::ostream& out)
{
    UnloadTest test(host, out);
    test.Run();
    return test.ExitCodeOfAnswers();
}
} // namespace sndxtools
