// DGlobal: the one render state object, made on first use.
#include "render/dglobal.h"

#include "toolkit/glext.h" // first of the OpenGL headers: <epoxy/gl.h>

#include "foundation/qmessage.h"
#include "render/dtexhooks.h"
#include "render/dtexture.h"
#include "render/qobjectmgr.h"
#include "toolkit/qapp.h"

namespace tarvik {

static DGlobal* dglobal = nullptr;

DGlobal::DGlobal()
    : flags(D3_USE_TEXTURE_POOL | D3_USE_OPENGL), minFilter(GL_LINEAR), magFilter(GL_LINEAR), wrapS(GL_CLAMP),
      wrapT(GL_CLAMP), wrapR(GL_CLAMP), wrapQ(GL_CLAMP), envMode(GL_REPLACE), maxTexWid(4096), maxTexHgt(4096),
      texReduction(1), anisotropy(1.0f), linearColor(1), factor(1.0f), words{0, 0, 0, 0},
      texFlags(D3_LOAD_TEXTURES | 8), texturePool(new DTexturePool),
      textureManager(new DTextureManager), geodeManager(new DGeodeManager(10000)),
      // Bit 8 of texFlags has no reader in this tree. The shader manager needs the shader runtime
      // and a current context; the shader code makes it.
      gpuShaderManager(nullptr), shaderPath(new QPath), gpuProgramManager(new DGPUProgramManager),
      environmentMap(nullptr), skin(0), shaderLibrary(nullptr), settings(nullptr)
{
}

DGlobal::~DGlobal()
{
    delete texturePool;
    texturePool = nullptr;
    delete textureManager; // reports the textures still referenced
    textureManager = nullptr;
    delete geodeManager;
    geodeManager = nullptr;
    delete gpuShaderManager;
    gpuShaderManager = nullptr;
    delete shaderPath;
    shaderPath = nullptr;
    delete gpuProgramManager;
    gpuProgramManager = nullptr;
}

DGlobal* d3GetDGlobal()
{
    if (dglobal) return dglobal;
    dglobal = new DGlobal;
    d3RegisterToolkitHooks(); // every texture passes here first, so windows can paint them
    if (app) app->AddCleanupProc(d3FreeDGlobal);
    else QWARNING("d3GetDGlobal(); no 'app' yet, so cleanup of dglobal won't be called -> memory leak");
    return dglobal;
}

DGlobal* d3PeekDGlobal()
{
    return dglobal;
}

void d3FreeDGlobal()
{
    // The pointer stays valid while the members go, so that a texture given back during the
    // release still finds the object (with its pool gone).
    delete dglobal;
    dglobal = nullptr;
}

} // namespace tarvik
