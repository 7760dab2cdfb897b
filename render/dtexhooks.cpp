#include "render/dtexhooks.h"

#include "render/dtexture.h"
#include "toolkit/qtexhooks.h"

namespace tarvik {

namespace {

const QTextureHooks textureHooks = {
    [](DTexture* tex) { tex->Select(); },
    [](DTexture* tex) { return tex->GetWidth(); },
    [](DTexture* tex) { return tex->GetHeight(); },
    [](DTexture* tex, unsigned s, unsigned t) { tex->SetWrap(s, t, tex->GetWrapR(), tex->GetWrapQ()); },
};

} // namespace

void d3RegisterToolkitHooks()
{
    qtextureHooks = &textureHooks;
}

} // namespace tarvik
