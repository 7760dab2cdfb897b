// QXWindow: a native window, top level or a child of another native window. The one class of the
// toolkit that deals with the platform's windows; everything above it sees a drawable with a size.
// The native window exists from Create to the destructor.
#pragma once

#include "images/qdrawable.h"

#include <cstdint>

namespace tarvik {

struct PlatformWindow;

enum QXWindowFlags : uint32_t {
    QXWF_FULLSCREEN = 8,
    QXWF_NO_SIZING = 16, // no sizing border
};

class QXWindow : public QDrawable {
public:
    QXWindow(QXWindow* parentWin, int x0, int y0, int w, int h);
    ~QXWindow() override; // destroys the native window

    const char* ClassName() const override { return "QXWindow"; }
    void* GetNativeHandle() const override { return native; }
    bool Create() override;
    void Destroy() override; // reports "QXWindow:Destroy NYI"
    int GetWidth() const override { return wid; }
    int GetHeight() const override { return hgt; }
    virtual void Swap();

    void Move(int nx, int ny);
    void Size(int w, int h);
    bool IsFullScreen() const { return flags & QXWF_FULLSCREEN; }
    void SetFullScreen() { flags |= QXWF_FULLSCREEN; }
    void SetIcon(void* newIcon) { icon = newIcon; }
    void SetFlags(uint32_t bits) { flags |= bits; }
    PlatformWindow* GetPlatformWindow() const { return native; }

private:
    PlatformWindow* native; // owned
    QXWindow* parent;       // borrowed
    uint32_t flags;
    void* icon;
    int32_t x, y, wid, hgt;
};

} // namespace tarvik
