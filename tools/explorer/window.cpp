#include "tools/explorer/window.h"

#include <windowsx.h>

#include "tools/results.h"

namespace sndxtools
{
namespace
{
constexpr WCHAR className[] = L"SendoraFolderWindow";
constexpr UINT_PTR tickTimer = 1;
constexpr UINT tickMilliseconds = 100;
constexpr LPARAM byKeyboard = -1; // in place of the position of a question for the menu
} // namespace

Window::Window(const ExplorerOptions& options, std::ostream& err)
    : err_(err), folder_(Wide(options.folder)), overlays_(options.largeIcons)
{
    const HINSTANCE program = GetModuleHandleW(nullptr);
    WNDCLASSEXW windowClass = {};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = &Window::Procedure;
    windowClass.hInstance = program;
    windowClass.hCursor = LoadCursorW(nullptr, MAKEINTRESOURCEW(32512)); // the arrow
    windowClass.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    windowClass.lpszClassName = className;
    RegisterClassExW(&windowClass); // fails when an earlier window has done it
    const auto& [left, top, width, height] = options.place;
    frame_.reset(CreateWindowExW(0, className, folder_.Path().c_str(), WS_OVERLAPPEDWINDOW, left, top, width,
                                 height, nullptr, nullptr, program, nullptr));
    Check("CreateWindowEx (is there a display?)", frame_ ? S_OK : ErrorResult(GetLastError()),
          frame_ != nullptr);
    status_.reset(CreateWindowExW(0, STATUSCLASSNAMEW, L"", WS_CHILD | WS_VISIBLE, 0, 0, 0, 0, frame_.get(),
                                  nullptr, program, nullptr));
    view_.emplace(frame_.get(), options.largeIcons);
    SetWindowLongPtrW(frame_.get(), GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    view_->Show(folder_, overlays_);
    for (const std::string& name : options.selected)
    {
        view_->Select(folder_, name);
    }
    ShowItemCount();
    ShowWindow(frame_.get(), SW_SHOWNORMAL);
    SetFocus(view_->Handle());
    UpdateWindow(frame_.get());
}

Window::~Window()
{
    SetWindowLongPtrW(frame_.get(), GWLP_USERDATA, 0); // the children's last messages are of no interest
}

int Window::Run(WindowObserver* observer)
{
    observer_ = observer;
    if (observer_ != nullptr)
    {
        SetTimer(frame_.get(), tickTimer, tickMilliseconds, nullptr);
    }
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    return exitCode_;
}

void Window::AskForMenu()
{
    PostMessageW(frame_.get(), WM_CONTEXTMENU, reinterpret_cast<WPARAM>(view_->Handle()), byKeyboard);
}

void Window::SendKey(UINT key)
{
    // Open menus look at the messages of the whole thread; one that is posted needs no keyboard focus.
    PostMessageW(frame_.get(), WM_KEYDOWN, key, 0);
}

void Window::Close(int exitCode)
{
    exitCode_ = exitCode;
    closing_ = true;
    if (menu_)
    {
        EndMenu(); // ShowMenu goes on from there
        return;
    }
    PostQuitMessage(exitCode_);
}

LRESULT CALLBACK Window::Procedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam)
{
    auto* const window = reinterpret_cast<Window*>(GetWindowLongPtrW(handle, GWLP_USERDATA));
    if (window == nullptr)
    {
        return DefWindowProcW(handle, message, wParam, lParam);
    }
    // The system's code calls this: no exception may pass through it.
    try
    {
        return window->Handle(message, wParam, lParam);
    }
    catch (const std::exception& error)
    {
        window->Fail(error.what());
        return 0;
    }
}

LRESULT Window::Handle(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message)
    {
    case WM_SIZE:
        Resize(LOWORD(lParam), HIWORD(lParam));
        return 0;
    case WM_SETFOCUS:
        SetFocus(view_->Handle());
        return 0;
    case WM_NOTIFY:
        Notified(*reinterpret_cast<const NMHDR*>(lParam));
        return 0;
    case WM_CONTEXTMENU:
        ShowMenu(lParam);
        return 0;
    case WM_MENUSELECT:
        MenuSelected(wParam, lParam);
        return 0;
    case WM_TIMER:
        if (observer_ != nullptr && !closing_)
        {
            observer_->Tick();
        }
        return 0;
    case WM_CLOSE:
        Close(exitCode_);
        return 0;
    default:
        return DefWindowProcW(frame_.get(), message, wParam, lParam);
    }
}

void Window::Notified(const NMHDR& notification)
{
    if (notification.hwndFrom != view_->Handle())
    {
        return;
    }
    const bool pressed = notification.code == LVN_KEYDOWN;
    const UINT key = pressed ? reinterpret_cast<const NMLVKEYDOWN&>(notification).wVKey : 0;
    if (key == VK_F5)
    {
        ReadAgain();
    }
    else if (key == VK_APPS)
    {
        // Wine does not ask for a menu by itself; of two questions the second finds the menu open.
        AskForMenu();
    }
    else if (notification.code == static_cast<UINT>(NM_DBLCLK) ||
             notification.code == static_cast<UINT>(NM_RETURN))
    {
        const std::vector<std::size_t> selection = view_->Selection();
        if (selection.size() == 1)
        {
            Open(selection.front());
        }
    }
}

void Window::Resize(int width, int height)
{
    SendMessageW(status_.get(), WM_SIZE, 0, 0);
    RECT bar = {};
    GetWindowRect(status_.get(), &bar);
    MoveWindow(view_->Handle(), 0, 0, width, height - (bar.bottom - bar.top), TRUE);
}

void Window::ReadAgain()
{
    folder_.Read();
    view_->Show(folder_, overlays_);
    ShowItemCount();
}

void Window::Open(std::size_t item)
{
    const WideString path = folder_.Items()[item].path;
    if (!folder_.Items()[item].isFolder)
    {
        ShellExecuteW(frame_.get(), nullptr, path.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
        return;
    }
    folder_ = sndxtools::Folder(path);
    SetWindowTextW(frame_.get(), path.c_str());
    ReadAgain();
}

void Window::ShowMenu(LPARAM position)
{
    const std::vector<std::size_t> selection = view_->Selection();
    if (selection.empty() || menu_)
    {
        return;
    }
    const POINT pointed = {GET_X_LPARAM(position), GET_Y_LPARAM(position)};
    const auto [x, y] = position == byKeyboard ? view_->BesideFocusedIcon() : pointed;
    const bool extended = GetKeyState(VK_SHIFT) < 0;
    menu_ = std::make_unique<ContextMenu>(frame_.get(), folder_, selection, extended);
    SetForegroundWindow(frame_.get()); // else a click elsewhere would not close the menu
    const auto id = static_cast<UINT>(
        TrackPopupMenuEx(menu_->Get(), TPM_RETURNCMD | TPM_RIGHTBUTTON, x, y, frame_.get(), nullptr));
    ShowItemCount();
    // Nothing can ask for another menu, or for the end, before this one's command is done.
    const std::unique_ptr<ContextMenu> menu = std::move(menu_);
    HRESULT result = S_OK;
    if (id == ContextMenu::open)
    {
        Open(selection.front());
    }
    else if (id != 0)
    {
        result = menu->Invoke(id);
    }
    if (FAILED(result))
    {
        ShowStatus("InvokeCommand: " + ResultText(result));
    }
    if (closing_)
    {
        Close(exitCode_);
    }
    else if (observer_ != nullptr)
    {
        observer_->MenuEnded(*menu, id, result);
    }
}

void Window::MenuSelected(WPARAM wParam, LPARAM lParam)
{
    const UINT flags = HIWORD(wParam);
    if (flags == 0xFFFF && lParam == 0)
    {
        ShowItemCount(); // the menu is closed
        return;
    }
    const bool isCommand = menu_ && (flags & (MF_POPUP | MF_SEPARATOR)) == 0;
    ShowStatus(isCommand ? menu_->HelpText(LOWORD(wParam)) : std::string());
}

void Window::ShowStatus(const std::string& text)
{
    SetWindowTextW(status_.get(), Wide(text).c_str());
}

void Window::ShowItemCount()
{
    const int count = view_->Count();
    ShowStatus(std::to_string(count) + (count == 1 ? " Element" : " Elemente"));
}

std::string Window::StatusText() const
{
    WCHAR text[MAX_PATH] = {};
    GetWindowTextW(status_.get(), text, MAX_PATH);
    return Utf8(text);
}

void Window::Fail(const std::string& text)
{
    err_ << "explorer: " << text << std::endl;
    if (observer_ != nullptr)
    {
        Close(1);
        return;
    }
    menu_.reset();
    ShowStatus(text);
}
} // namespace sndxtools
