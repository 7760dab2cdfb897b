// What the toolkit takes from the render library's textures.
//
// A window may be painted with a DTexture (QWindow::tex), but the texture class belongs to the
// render library, which stands above the toolkit: the toolkit never sees its definition and only
// holds the pointer. The render library fills qtextureHooks when it makes its global state
// (d3GetDGlobal), which every texture's constructor does first. A program without the render
// library has no textures, and the pointer stays null; users test for null first.
#pragma once

namespace tarvik {

class DTexture;

struct QTextureHooks {
    void (*Select)(DTexture* tex);    // binds the texture in the current context
    int (*GetWidth)(DTexture* tex);   // in pixels
    int (*GetHeight)(DTexture* tex);
    void (*SetWrap)(DTexture* tex, unsigned s, unsigned t); // OpenGL wrap modes; R and Q stay
};

extern const QTextureHooks* qtextureHooks; // null until the render library sets it

} // namespace tarvik
