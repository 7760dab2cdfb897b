// QGLContext: one OpenGL rendering context, drawing into a QXWindow.
//
// The toolkit works with many windows and one current context. Every operation of a context makes
// it current first (Select), so callers never think about which one is; on the current context
// that costs one comparison and no driver call. The record of the current context is process-wide
// and bound to the thread of the event loop.
//
// A context owns its GLLExtensionManager, which runs the first time the context is selected and
// fills the process-wide entry points of toolkit/glext.h. A context the driver refused stays an
// object: it warns once at construction and its operations do nothing.
#pragma once

#include "foundation/qobject.h"

#include <cstdint>

namespace tarvik {

class QDrawable;
class GLLExtensionManager;
struct PlatformGLContext;

enum QGLSelectFlags {
    QGLSEL_FORCE = 1,         // make current in the driver even if the record says so already,
                              // and leave the record alone
    QGLSEL_NO_EXTENSIONS = 2, // skip CheckExtensions
};

class QGLContext : public QObject {
public:
    // 'd' must be a created QXWindow; the context draws into its surface and shares textures and
    // lists with 'share' when given. The two words are not read.
    QGLContext(QDrawable* d, uint32_t word1, QGLContext* share, uint32_t word2);
    ~QGLContext() override; // releases the context if the driver has it current

    const char* ClassName() const override { return "QGLContext"; }

    // Makes this context current: with 'd' set, on that drawable from now on.
    void Select(QDrawable* d = nullptr, uint32_t word = 0, int selFlags = 0);
    static QGLContext* GetCurrent(); // the record; null at start

    // Each makes the context current, then does the one OpenGL call of its name.
    void SetBlendFunc(unsigned src, unsigned dst);
    void Clear(unsigned mask);
    void Disable(unsigned cap);
    void SetDrawBuffer(unsigned mode);
    void LoadIdentity();
    void SetMatrixMode(unsigned mode);
    void Ortho(double left, double right, double bottom, double top, double zNear, double zFar);
    void SetViewport(int x, int y, int wid, int hgt); // also stored, see GetViewport
    void Swap(); // shows the back buffer of the drawable; nothing without one

    // Pixel coordinates with the origin at the bottom left: viewport over the drawable, identity
    // projection, the orthographic matrix on the model view, which stays the current matrix mode.
    void Setup2D();
    // A perspective in which, at depth 'distance', one unit is one pixel of the drawable.
    void Setup3D(int distance);

    QDrawable* GetDrawable() const { return drawable; }
    PlatformGLContext* GetNative() const { return hglrc; } // null when the driver refused
    GLLExtensionManager* GetExtensions() const { return ext; }
    const int32_t* GetViewport() const { return viewport; } // x, y, wid, hgt of the last SetViewport

private:
    QDrawable* drawable;    // borrowed: the window owns the context
    PlatformGLContext* hglrc; // owned
    float matrixA[16], matrixB[16];
    int32_t viewport[4];
    GLLExtensionManager* ext; // owned
};

// The process-wide OpenGL debug switch. While it is on, every Select and QShowGLErrors installs
// QGLErrorCallback, where the driver has the debug output extension.
void QGLSetDebug(bool on);
bool QGLGetDebug();

// Reports every pending OpenGL error as "%s: OpenGL error (%d): %s" with 'text'; true if there
// were any. False at once without a current context.
bool QShowGLErrors(const char* text);

// The driver's debug output, reported as warnings. The types are those of the OpenGL debug
// callback (enums and ids unsigned, the length signed).
void QGLErrorCallback(unsigned source, unsigned type, unsigned id, unsigned severity, int length,
                      const char* message, const void* userParam);

} // namespace tarvik
