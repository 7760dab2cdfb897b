// Display modes on the X Window System, through the resize-and-rotate extension: the mode of the
// CRTC that shows the first connected output, chosen among that output's modes. The screen takes
// the size of the new mode, so that a window of that size covers it. A changed mode outlives the
// process on this display, so it is put back when the display closes and when the process ends.
#include "platform/platform_x11_internal.h"

#include <X11/extensions/Xrandr.h>

#include <cstdlib>

namespace tarvik {

using x11::ds;

namespace {

struct SavedMode {
    bool changed = false; // the desktop's mode below is to come back
    RRCrtc crtc = None;
    RRMode mode = None;
    int screenWidth = 0, screenHeight = 0;
};

SavedMode saved;
int randrProbed = -1; // for the open display: -1 not asked yet, 0 no usable extension, 1 version 1.2 or later
bool exitHookSet = false;

bool HasRandr()
{
    if (randrProbed < 0) {
        int event = 0, error = 0, major = 0, minor = 0;
        randrProbed = XRRQueryExtension(ds.display, &event, &error) && XRRQueryVersion(ds.display, &major, &minor) &&
                      (major > 1 || (major == 1 && minor >= 2));
    }
    return randrProbed == 1;
}

// The display's resources, one CRTC of them with its state, and the output it shows. Loaded by
// Load, freed with the object.
class CrtcView {
public:
    CrtcView() = default;
    ~CrtcView()
    {
        if (output) XRRFreeOutputInfo(output);
        if (crtc) XRRFreeCrtcInfo(crtc);
        if (res) XRRFreeScreenResources(res);
    }
    CrtcView(const CrtcView&) = delete;
    CrtcView& operator=(const CrtcView&) = delete;

    // The CRTC 'wanted', or with None the one of the first connected output that has one.
    bool Load(RRCrtc wanted)
    {
        if (!HasRandr()) return false;
        res = XRRGetScreenResourcesCurrent(ds.display, ds.root);
        if (!res) return false;
        for (int i = 0; i < res->noutput && !crtc; i++) {
            XRROutputInfo* o = XRRGetOutputInfo(ds.display, res, res->outputs[i]);
            if (!o) continue;
            bool fits = wanted != None ? o->crtc == wanted : o->connection == RR_Connected && o->crtc != None;
            if (fits) {
                id = o->crtc;
                crtc = XRRGetCrtcInfo(ds.display, res, id);
                output = o;
            } else {
                XRRFreeOutputInfo(o);
            }
        }
        return crtc != nullptr;
    }

    const XRRModeInfo* Mode(RRMode mode) const
    {
        for (int i = 0; i < res->nmode; i++)
            if (res->modes[i].id == mode) return &res->modes[i];
        return nullptr;
    }

    XRRScreenResources* res = nullptr; // owned
    XRROutputInfo* output = nullptr;   // owned
    XRRCrtcInfo* crtc = nullptr;       // owned
    RRCrtc id = None;
};

// The size a mode covers on the screen, turned with the CRTC.
void ShownSize(const XRRModeInfo& mode, Rotation rotation, int* width, int* height)
{
    bool turned = rotation & (RR_Rotate_90 | RR_Rotate_270);
    *width = int(turned ? mode.height : mode.width);
    *height = int(turned ? mode.width : mode.height);
}

// Whole hertz, rounded; 0 when the timings don't tell.
int RefreshOf(const XRRModeInfo& mode)
{
    double lines = mode.vTotal;
    if (mode.modeFlags & RR_DoubleScan) lines *= 2;
    if (mode.modeFlags & RR_Interlace) lines /= 2;
    if (!mode.hTotal || lines <= 0) return 0;
    return int(double(mode.dotClock) / (double(mode.hTotal) * lines) + 0.5);
}

void RootSize(int* width, int* height)
{
    Window root;
    int x = 0, y = 0;
    unsigned w = 0, h = 0, border = 0, depth = 0;
    XGetGeometry(ds.display, ds.root, &root, &x, &y, &w, &h, &border, &depth);
    *width = int(w), *height = int(h);
}

// Keeps the physical size in step, so that the resolution per millimetre stays. Xlib's record of
// the screen follows too: it would learn the size only from an event nobody here asks for.
void SetScreenSize(int width, int height)
{
    Screen* s = ScreenOfDisplay(ds.display, ds.screen);
    int mmWidth = s->width > 0 && s->mwidth > 0 ? int(int64_t(width) * s->mwidth / s->width) : 0;
    int mmHeight = s->height > 0 && s->mheight > 0 ? int(int64_t(height) * s->mheight / s->height) : 0;
    // A screen that reports no physical size gets one of 96 pixels per inch.
    if (mmWidth <= 0) mmWidth = int(int64_t(width) * 254 / 960);
    if (mmHeight <= 0) mmHeight = int(int64_t(height) * 254 / 960);
    XRRSetScreenSize(ds.display, ds.root, width, height, mmWidth, mmHeight);
    s->width = width, s->height = height, s->mwidth = mmWidth, s->mheight = mmHeight;
}

// Sets 'mode' on the CRTC of 'view' and gives the screen the size width x height. The screen must
// hold every CRTC at every step: it grows before the change and shrinks after it.
bool Apply(const CrtcView& view, RRMode mode, int width, int height)
{
    int errorsBefore = x11::errorCount;
    int oldWidth = 0, oldHeight = 0;
    RootSize(&oldWidth, &oldHeight);
    int bigWidth = width > oldWidth ? width : oldWidth;
    int bigHeight = height > oldHeight ? height : oldHeight;
    if (bigWidth != oldWidth || bigHeight != oldHeight) SetScreenSize(bigWidth, bigHeight);
    Status status = XRRSetCrtcConfig(ds.display, view.res, view.id, CurrentTime, view.crtc->x, view.crtc->y, mode,
                                     view.crtc->rotation, view.crtc->outputs, view.crtc->noutput);
    if (status != RRSetConfigSuccess) {
        if (bigWidth != oldWidth || bigHeight != oldHeight) SetScreenSize(oldWidth, oldHeight);
        XSync(ds.display, False);
        return false;
    }
    if (width != bigWidth || height != bigHeight) SetScreenSize(width, height);
    XSync(ds.display, False);
    return x11::errorCount == errorsBefore;
}

// The screen that holds the other CRTCs as they are and 'view's at width x height; false when the
// display can't make a screen that big.
bool ScreenSizeFor(const CrtcView& view, int width, int height, int* screenWidth, int* screenHeight)
{
    int right = view.crtc->x + width, bottom = view.crtc->y + height;
    for (int i = 0; i < view.res->ncrtc; i++) {
        if (view.res->crtcs[i] == view.id) continue;
        XRRCrtcInfo* other = XRRGetCrtcInfo(ds.display, view.res, view.res->crtcs[i]);
        if (!other) continue;
        if (other->mode != None) {
            if (other->x + int(other->width) > right) right = other->x + int(other->width);
            if (other->y + int(other->height) > bottom) bottom = other->y + int(other->height);
        }
        XRRFreeCrtcInfo(other);
    }
    int minWidth = 0, minHeight = 0, maxWidth = 0, maxHeight = 0;
    if (!XRRGetScreenSizeRange(ds.display, ds.root, &minWidth, &minHeight, &maxWidth, &maxHeight)) return false;
    if (right > maxWidth || bottom > maxHeight) return false;
    *screenWidth = right > minWidth ? right : minWidth;
    *screenHeight = bottom > minHeight ? bottom : minHeight;
    return true;
}

// The display keeps a mode after its client is gone; a program that ends without closing the
// display must not leave the desktop in its mode.
void RestoreAtExit()
{
    PlatformRestoreDisplayMode();
}

} // namespace

namespace x11 {

void CloseDisplayModes()
{
    PlatformRestoreDisplayMode();
    randrProbed = -1;
}

} // namespace x11

bool PlatformGetDisplayMode(PlatformDisplayMode* mode)
{
    if (!mode || !PlatformDisplayOpen(nullptr)) return false;
    mode->bits = DefaultDepth(ds.display, ds.screen);
    CrtcView view;
    const XRRModeInfo* info = view.Load(None) ? view.Mode(view.crtc->mode) : nullptr;
    if (info) {
        ShownSize(*info, view.crtc->rotation, &mode->width, &mode->height);
        mode->refresh = RefreshOf(*info);
    } else {
        RootSize(&mode->width, &mode->height);
        mode->refresh = 0;
    }
    return true;
}

bool PlatformSetDisplayMode(const PlatformDisplayMode* mode, bool useRefresh)
{
    if (!mode || !PlatformDisplayOpen(nullptr)) return false;
    // The depth is the screen's for its whole life; 32 is the same depth counted with its padding.
    int depth = DefaultDepth(ds.display, ds.screen);
    if (mode->bits != depth && !(depth == 24 && mode->bits == 32)) return false;
    useRefresh = useRefresh && mode->refresh > 0;

    CrtcView view;
    if (!view.Load(None)) {
        // Without the extension the one mode there is is the screen as it stands.
        int width = 0, height = 0;
        RootSize(&width, &height);
        return !useRefresh && mode->width == width && mode->height == height;
    }
    // The mode shown now when it fits, else the first that fits in the output's own order, which
    // puts the preferred ones first.
    RRMode chosen = None;
    for (int i = 0; i < view.output->nmode && chosen != view.crtc->mode; i++) {
        const XRRModeInfo* info = view.Mode(view.output->modes[i]);
        if (!info) continue;
        int width = 0, height = 0;
        ShownSize(*info, view.crtc->rotation, &width, &height);
        if (width != mode->width || height != mode->height) continue;
        if (useRefresh && RefreshOf(*info) != mode->refresh) continue;
        if (chosen == None || info->id == view.crtc->mode) chosen = info->id;
    }
    if (chosen == None) return false;
    if (chosen == view.crtc->mode) return true;
    int screenWidth = 0, screenHeight = 0;
    if (!ScreenSizeFor(view, mode->width, mode->height, &screenWidth, &screenHeight)) return false;

    SavedMode before = saved;
    if (!saved.changed) {
        saved.crtc = view.id;
        saved.mode = view.crtc->mode;
        RootSize(&saved.screenWidth, &saved.screenHeight);
    }
    if (!Apply(view, chosen, screenWidth, screenHeight)) {
        saved = before;
        return false;
    }
    saved.changed = true;
    if (!exitHookSet) exitHookSet = atexit(RestoreAtExit) == 0;
    return true;
}

void PlatformRestoreDisplayMode()
{
    if (!saved.changed || !ds.display) return;
    SavedMode desktop = saved;
    saved = SavedMode();
    CrtcView view;
    if (view.Load(desktop.crtc)) Apply(view, desktop.mode, desktop.screenWidth, desktop.screenHeight);
}

} // namespace tarvik
