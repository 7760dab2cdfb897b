// OpenGL surfaces and contexts on the X Window System, through GLX. Every GL and GLX call goes
// through epoxy, which loads the GL library on the first such call: a program that makes no OpenGL
// window never loads it, and the window code calls in here only for windows that have a surface.
#include "platform/platform_x11_internal.h"

#include <X11/Xutil.h>

#include <dlfcn.h>
#include <link.h>

#include <cstring>
#include <string>

namespace tarvik {

struct PlatformGLContext {
    GLXContext context;
};

using x11::ds;

namespace {

std::vector<PlatformGLContext*> contexts; // owned; every context of the open display
PlatformGLContext* current = nullptr;     // the one made current through us, on 'currentDrawable'
Window currentDrawable = None;

bool IsOurContext(const PlatformGLContext* context)
{
    for (PlatformGLContext* c : contexts)
        if (c == context) return true;
    return false;
}

void Release()
{
    glXMakeCurrent(ds.display, None, nullptr);
    current = nullptr;
    currentDrawable = None;
}

// The first configuration that has at least what 'format' asks for, with or without stereo; null
// when none fits. The display sorts them: no caveat first, then the fewest bits beyond the wish.
GLXFBConfig ChooseConfig(const PlatformSurfaceFormat& format, bool stereo)
{
    // Colour bits are those of red, green and blue together; 32 stands for 24 and 8 left over.
    int channelBits = format.colorBits == 32 ? 8 : format.colorBits / 3;
    const int attribs[] = {
        GLX_X_RENDERABLE,  True,
        GLX_DRAWABLE_TYPE, GLX_WINDOW_BIT,
        GLX_RENDER_TYPE,   GLX_RGBA_BIT,
        GLX_DOUBLEBUFFER,  True,
        GLX_RED_SIZE,      channelBits,
        GLX_GREEN_SIZE,    channelBits,
        GLX_BLUE_SIZE,     channelBits,
        GLX_ALPHA_SIZE,    format.alphaBits,
        GLX_DEPTH_SIZE,    format.depthBits,
        GLX_STENCIL_SIZE,  format.stencilBits,
        GLX_STEREO,        stereo ? True : False,
        None,
    };
    int count = 0;
    GLXFBConfig* configs = glXChooseFBConfig(ds.display, ds.screen, attribs, &count);
    if (!configs) return nullptr;
    GLXFBConfig chosen = count > 0 ? configs[0] : nullptr;
    XFree(configs);
    return chosen;
}

int ConfigAttrib(GLXFBConfig config, int attrib)
{
    int value = 0;
    glXGetFBConfigAttrib(ds.display, config, attrib, &value);
    return value;
}

// Whether the driver behind the screen draws without a graphics processor. The renderer says so
// itself where it can; otherwise the configuration's caveat is all there is to go by.
bool RendersInSoftware(GLXFBConfig config)
{
    if (epoxy_has_glx_extension(ds.display, ds.screen, "GLX_MESA_query_renderer")) {
        unsigned accelerated = 0;
        if (glXQueryRendererIntegerMESA(ds.display, ds.screen, 0, GLX_RENDERER_ACCELERATED_MESA, &accelerated))
            return !accelerated;
    }
    return ConfigAttrib(config, GLX_CONFIG_CAVEAT) == GLX_SLOW_CONFIG;
}

void Describe(GLXFBConfig config, PlatformSurfaceInfo* info)
{
    info->id = ConfigAttrib(config, GLX_FBCONFIG_ID);
    info->colorBits =
        ConfigAttrib(config, GLX_RED_SIZE) + ConfigAttrib(config, GLX_GREEN_SIZE) + ConfigAttrib(config, GLX_BLUE_SIZE);
    info->alphaBits = ConfigAttrib(config, GLX_ALPHA_SIZE);
    info->depthBits = ConfigAttrib(config, GLX_DEPTH_SIZE);
    info->stencilBits = ConfigAttrib(config, GLX_STENCIL_SIZE);
    info->stereo = ConfigAttrib(config, GLX_STEREO) != 0;
    info->software = RendersInSoftware(config);
}

int CollectDriver(dl_phdr_info* info, size_t, void* names)
{
    const char* name = info->dlpi_name;
    if (name && (strstr(name, "_dri.so") || strstr(name, "libgallium")))
        static_cast<std::vector<std::string>*>(names)->push_back(name);
    return 0;
}

// Keeps the GL driver that the display loaded for as long as the process runs. Closing the
// display unloads it, and opening one again loads it anew; a driver unloaded so leaves behind what
// its libraries set up once per process, and a leak checker then reports that.
void PinDriver()
{
    static bool pinned = false;
    if (pinned) return;
    pinned = true;
    std::vector<std::string> names;
    dl_iterate_phdr(CollectDriver, &names); // loads nothing while the loader's list is held
    for (const std::string& name : names)
        dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE); // never closed
}

// A context for 'config'; null with the request refused, whether by a null result or by an error.
GLXContext CreateContext(GLXFBConfig config, GLXContext share, bool direct)
{
    int errorsBefore = x11::errorCount;
    GLXContext context = glXCreateNewContext(ds.display, config, GLX_RGBA_TYPE, share, direct ? True : False);
    XSync(ds.display, False);
    if (context && x11::errorCount != errorsBefore) {
        glXDestroyContext(ds.display, context);
        context = nullptr;
    }
    return context;
}

} // namespace

namespace x11 {

void WindowGoing(const PlatformWindow* window)
{
    if (current && window->xid != None && window->xid == currentDrawable) Release();
}

void CloseGL()
{
    if (current) Release();
    for (PlatformGLContext* c : contexts) {
        glXDestroyContext(ds.display, c->context);
        delete c;
    }
    contexts.clear();
}

} // namespace x11

PlatformWindow* PlatformWindowCreateGL(PlatformWindow* parent, const char* title, int x, int y, int width,
                                       int height, int flags, const PlatformSurfaceFormat* format,
                                       PlatformSurfaceInfo* info)
{
    if (!PlatformDisplayOpen(nullptr) || !format) return nullptr;
    // Frame-buffer configurations came with GLX 1.3.
    if (epoxy_glx_version(ds.display, ds.screen) < 13) return nullptr;
    PinDriver();
    GLXFBConfig config = ChooseConfig(*format, format->stereo);
    // Stereo is a wish the display may not grant; the caller learns so from the info.
    if (!config && format->stereo) config = ChooseConfig(*format, false);
    if (!config) return nullptr;
    XVisualInfo* visual = glXGetVisualFromFBConfig(ds.display, config);
    if (!visual) return nullptr;
    Colormap colormap = XCreateColormap(ds.display, ds.root, visual->visual, AllocNone);
    x11::SurfaceFormat surface = {visual->visual, visual->depth, colormap, config};
    PlatformWindow* w = x11::CreateNativeWindow(parent, title, x, y, width, height, flags, surface);
    XFree(visual);
    if (!w) {
        XFreeColormap(ds.display, colormap);
        return nullptr;
    }
    if (info) Describe(config, info);
    return w;
}

PlatformGLContext* PlatformGLContextCreate(PlatformWindow* window, PlatformGLContext* share)
{
    if (!ds.display || !x11::IsOurWindow(window) || !window->config) return nullptr;
    if (share && !IsOurContext(share)) return nullptr;
    GLXContext shareContext = share ? share->context : nullptr;
    // Direct rendering where the driver allows it; through the display otherwise.
    GLXContext context = CreateContext(window->config, shareContext, true);
    if (!context) context = CreateContext(window->config, shareContext, false);
    if (!context) return nullptr;
    PlatformGLContext* c = new PlatformGLContext{context};
    contexts.push_back(c);
    return c;
}

void PlatformGLContextDestroy(PlatformGLContext* context)
{
    if (!context || !IsOurContext(context)) return;
    if (context == current) Release();
    for (size_t i = 0; i < contexts.size(); i++) {
        if (contexts[i] == context) {
            contexts.erase(contexts.begin() + long(i));
            break;
        }
    }
    glXDestroyContext(ds.display, context->context);
    delete context;
}

bool PlatformGLMakeCurrent(PlatformWindow* window, PlatformGLContext* context)
{
    if (!ds.display) return false;
    if (!window && !context) {
        // Nothing made current through us: no call, which would load the GL library for nothing.
        if (current) Release();
        return true;
    }
    if (!x11::IsOurWindow(window) || window->xid == None || !window->config || !IsOurContext(context)) return false;
    if (!glXMakeCurrent(ds.display, window->xid, context->context)) return false;
    current = context;
    currentDrawable = window->xid;
    return true;
}

// GLX resolves names without a context. Some drivers hand out a callable stub for any name that
// starts with "gl", so a non-null result does not prove the function exists: the layer above
// asks the extension strings first.
void* PlatformGLGetProcAddress(const char* name)
{
    if (!name || !*name) return nullptr;
    return reinterpret_cast<void*>(glXGetProcAddressARB(reinterpret_cast<const GLubyte*>(name)));
}

void PlatformGLSwap(PlatformWindow* window)
{
    if (!ds.display || !x11::IsOurWindow(window) || window->xid == None || !window->config) return;
    glXSwapBuffers(ds.display, window->xid);
}

} // namespace tarvik
