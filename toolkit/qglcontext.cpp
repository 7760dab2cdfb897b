#include "toolkit/qglcontext.h"

#include "toolkit/glext.h" // first of the OpenGL headers

#include "foundation/qmessage.h"
#include "platform/platform_window.h"
#include "toolkit/qxwindow.h"

namespace tarvik {

namespace {

QGLContext* current;       // the record: what the toolkit believes is current
QGLContext* driverCurrent; // what the driver has current; differs after a forced select
bool debugOutput;

void SetIdentity(float* m)
{
    for (int i = 0; i < 16; i++)
        m[i] = i % 5 == 0 ? 1.0f : 0.0f;
}

// Routes the driver's debug output to QGLErrorCallback, where the driver offers it.
void InstallDebugOutput()
{
    if (!debugOutput || !gll::glDebugMessageCallbackARB) return;
    gll::glDebugMessageCallbackARB(QGLErrorCallback, nullptr);
    glEnable(GL_DEBUG_OUTPUT);
    glEnable(GL_DEBUG_OUTPUT_SYNCHRONOUS);
}

} // namespace

QGLContext::QGLContext(QDrawable* d, uint32_t word1, QGLContext* share, uint32_t word2)
    : drawable(d), hglrc(nullptr), viewport{0, 0, 0, 0}, ext(new GLLExtensionManager)
{
    SetIdentity(matrixA);
    SetIdentity(matrixB);
    QXWindow* xwin = dynamic_cast<QXWindow*>(d);
    PlatformWindow* window = xwin ? xwin->GetPlatformWindow() : nullptr;
    if (window) hglrc = PlatformGLContextCreate(window, share ? share->hglrc : nullptr);
    if (!hglrc) QWARNING("QGLContext(); wglCreateContext() failed to create OpenGL context; does not look good!");
}

QGLContext::~QGLContext()
{
    if (driverCurrent == this) {
        PlatformGLMakeCurrent(nullptr, nullptr);
        driverCurrent = nullptr;
        // Nothing is current in the driver now; a record naming another context would make its
        // next Select return without binding it.
        current = nullptr;
    }
    if (current == this) current = nullptr;
    if (hglrc) PlatformGLContextDestroy(hglrc);
    delete ext;
}

QGLContext* QGLContext::GetCurrent()
{
    return current;
}

void QGLContext::Select(QDrawable* d, uint32_t word, int selFlags)
{
    if (!(selFlags & QGLSEL_FORCE) && current == this) return;
    if (d) drawable = d;

    QXWindow* xwin = dynamic_cast<QXWindow*>(drawable);
    if (!xwin) {
        QERROR("QGLContext:Select(); drawable doesn't seem to be a QXWindow");
    } else if (!hglrc) {
        // The refused context was reported when it was made. Whatever another context had
        // current is let go, so that this one's drawing lands nowhere rather than in its window.
        if (driverCurrent) PlatformGLMakeCurrent(nullptr, nullptr);
        driverCurrent = nullptr;
    } else if (PlatformGLMakeCurrent(xwin->GetPlatformWindow(), hglrc)) {
        driverCurrent = this;
    }

    // Without a context in the driver there are no strings to read and no functions to resolve.
    if (hglrc && driverCurrent == this) {
        InstallDebugOutput();
        if (!(selFlags & QGLSEL_NO_EXTENSIONS)) ext->CheckExtensions();
    }
    if (!(selFlags & QGLSEL_FORCE)) current = this;
}

void QGLContext::SetBlendFunc(unsigned src, unsigned dst)
{
    Select();
    if (hglrc) glBlendFunc(src, dst);
}

void QGLContext::Clear(unsigned mask)
{
    Select();
    if (hglrc) glClear(mask);
}

void QGLContext::Disable(unsigned cap)
{
    Select();
    if (hglrc) glDisable(cap);
}

void QGLContext::SetDrawBuffer(unsigned mode)
{
    Select();
    if (hglrc) glDrawBuffer(mode);
}

void QGLContext::LoadIdentity()
{
    Select();
    if (hglrc) glLoadIdentity();
}

void QGLContext::SetMatrixMode(unsigned mode)
{
    Select();
    if (hglrc) glMatrixMode(mode);
}

void QGLContext::Ortho(double left, double right, double bottom, double top, double zNear, double zFar)
{
    Select();
    if (hglrc) glOrtho(left, right, bottom, top, zNear, zFar);
}

void QGLContext::SetViewport(int x, int y, int wid, int hgt)
{
    Select();
    if (hglrc) glViewport(x, y, wid, hgt);
    viewport[0] = x;
    viewport[1] = y;
    viewport[2] = wid;
    viewport[3] = hgt;
}

void QGLContext::Swap()
{
    Select();
    QXWindow* xwin = dynamic_cast<QXWindow*>(drawable);
    if (hglrc && xwin && xwin->GetPlatformWindow()) PlatformGLSwap(xwin->GetPlatformWindow());
}

// A drawable of no width or height still gets a range of one pixel: the driver refuses a
// projection whose bounds are equal.
static int DrawableSize(QDrawable* d, bool height)
{
    int n = d ? (height ? d->GetHeight() : d->GetWidth()) : 0;
    return n < 1 ? 1 : n;
}

void QGLContext::Setup2D()
{
    Select();
    int wid = DrawableSize(drawable, false);
    int hgt = DrawableSize(drawable, true);
    SetViewport(0, 0, wid, hgt);
    SetMatrixMode(GL_PROJECTION);
    LoadIdentity();
    SetMatrixMode(GL_MODELVIEW);
    LoadIdentity();
    Ortho(0, wid, 0, hgt, -1, 1);
}

void QGLContext::Setup3D(int distance)
{
    Select();
    if (!hglrc) return;
    float wid = float(DrawableSize(drawable, false));
    float hgt = float(DrawableSize(drawable, true));
    float d = float(distance);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glFrustum(-wid / d * 0.5f, wid / d * 0.5f, -hgt / d * 0.5f, hgt / d * 0.5f, 1, 100000);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glTranslatef(0, 0, -d);
}

void QGLSetDebug(bool on)
{
    debugOutput = on;
}

bool QGLGetDebug()
{
    return debugOutput;
}

bool QShowGLErrors(const char* text)
{
    if (!driverCurrent) return false;
    InstallDebugOutput();
    // A lost context answers with an error on every call; the bound keeps that from spinning.
    const int maxErrors = 64;
    bool any = false;
    for (int i = 0; i < maxErrors; i++) {
        GLenum code = glGetError();
        if (code == GL_NO_ERROR) break;
        const char* what;
        switch (code) {
        case GL_INVALID_ENUM: what = "invalid enumerant"; break;
        case GL_INVALID_VALUE: what = "invalid value"; break;
        case GL_INVALID_OPERATION: what = "invalid operation"; break;
        case GL_STACK_OVERFLOW: what = "stack overflow"; break;
        case GL_STACK_UNDERFLOW: what = "stack underflow"; break;
        case GL_OUT_OF_MEMORY: what = "out of memory"; break;
        case GL_INVALID_FRAMEBUFFER_OPERATION: what = "invalid framebuffer operation"; break;
        default: what = "unknown error"; break;
        }
        QERROR("%s: OpenGL error (%d): %s", text, int(code), what);
        any = true;
    }
    return any;
}

// The codes are those of the debug output extension, and of its vendor forerunner where that has
// one: its categories stand for a source and a type at once.
void QGLErrorCallback(unsigned source, unsigned type, unsigned id, unsigned severity, int length,
                      const char* message, const void* userParam)
{
    const unsigned categoryApiError = 0x9149, categoryWindowSystem = 0x914A, categoryDeprecation = 0x914B,
                   categoryUndefined = 0x914C, categoryPerformance = 0x914D, categoryShaderCompiler = 0x914E,
                   categoryApplication = 0x914F, categoryOther = 0x9150;
    const unsigned ignoredId = 131218; // a driver's note on shader recompiles, said on every draw
    if (id == ignoredId) {
        QINFO("OpenGL message 131218 seen - ignored\n");
        return;
    }
    const char* sourceText = "Unknown";
    if (source == GL_DEBUG_SOURCE_API_ARB || source == categoryApiError) sourceText = "API";
    else if (source == GL_DEBUG_SOURCE_WINDOW_SYSTEM_ARB || source == categoryWindowSystem) sourceText = "Window System";
    else if (source == GL_DEBUG_SOURCE_SHADER_COMPILER_ARB || source == categoryShaderCompiler)
        sourceText = "Shader Compiler";
    else if (source == GL_DEBUG_SOURCE_THIRD_PARTY_ARB) sourceText = "Third Party";
    else if (source == GL_DEBUG_SOURCE_APPLICATION_ARB || source == categoryApplication) sourceText = "Application";
    else if (source == GL_DEBUG_SOURCE_OTHER_ARB || source == categoryOther) sourceText = "Other";

    const char* typeText = "Unknown";
    if (type == GL_DEBUG_TYPE_ERROR_ARB || type == categoryApiError) typeText = "Error";
    else if (type == GL_DEBUG_TYPE_DEPRECATED_BEHAVIOR_ARB || type == categoryDeprecation)
        typeText = "Deprecated Behavior";
    else if (type == GL_DEBUG_TYPE_UNDEFINED_BEHAVIOR_ARB || type == categoryUndefined) typeText = "Undefined Behavior";
    else if (type == GL_DEBUG_TYPE_PORTABILITY_ARB) typeText = "Portability";
    else if (type == GL_DEBUG_TYPE_PERFORMANCE_ARB || type == categoryPerformance) typeText = "Performance";
    else if (type == GL_DEBUG_TYPE_OTHER_ARB || type == categoryOther) typeText = "Other";

    const char* severityText = "??";
    if (severity == GL_DEBUG_SEVERITY_HIGH_ARB) severityText = "High";
    else if (severity == GL_DEBUG_SEVERITY_MEDIUM_ARB) severityText = "Medium";
    else if (severity == GL_DEBUG_SEVERITY_LOW_ARB) severityText = "Low";

    QWARNING("OpenGL message: %s, [source %s, type %s, severity %s]\n", message ? message : "", sourceText,
             typeText, severityText);
}

} // namespace tarvik
