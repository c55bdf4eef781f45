#pragma once
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "tools/explorer/contextmenu.h"
#include "tools/explorer/folderview.h"
#include "tools/explorer/options.h"

namespace sndxtools
{
// Is told what happens in a window that works by itself. What these throw closes the window.
class WindowObserver
{
  public:
    virtual void Tick() = 0; // several times a second, also while a menu is open
    // A menu has been closed; id is 0 when nothing was chosen.
    virtual void MenuEnded(const ContextMenu& menu, UINT id, HRESULT result) = 0;

  protected:
    ~WindowObserver() = default;
};

// The window: the list of a folder's items above a status bar.
class Window
{
  public:
    // Errors that come up later go to err. Throws CallError, std::runtime_error.
    Window(const ExplorerOptions& options, std::ostream& err);
    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    // Until the window is closed; the exit code. With an observer the window works by itself.
    int Run(WindowObserver* observer);

    void AskForMenu();      // as the menu key does
    void SendKey(UINT key); // to the open menu
    void Close(int exitCode);

    const sndxtools::Folder& Folder() const { return folder_; }
    const OverlayHandlers& Overlays() const { return overlays_; }
    const FolderView& View() const { return *view_; }
    const ContextMenu* OpenMenu() const { return menu_.get(); } // null when none is open
    std::string StatusText() const;

  private:
    static LRESULT CALLBACK Procedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT Handle(UINT message, WPARAM wParam, LPARAM lParam);
    void Notified(const NMHDR& notification);
    void Resize(int width, int height);
    void ReadAgain();
    void Open(std::size_t item);
    void ShowMenu(LPARAM position);
    void MenuSelected(WPARAM wParam, LPARAM lParam);
    void ShowStatus(const std::string& text);
    void ShowItemCount();
    void Fail(const std::string& text);

    std::ostream& err_;
    sndxtools::Folder folder_;
    OverlayHandlers overlays_;
    Owned<HWND> frame_;
    Owned<HWND> status_;
    std::optional<FolderView> view_;
    std::unique_ptr<ContextMenu> menu_;
    WindowObserver* observer_ = nullptr;
    int exitCode_ = 0;
    bool closing_ = false;
};
} // namespace sndxtools
