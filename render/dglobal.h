// DGlobal: the process-wide state of the render objects: default settings, the search paths of
// texture and shader files, the texture pool and the object caches.
//
// d3GetDGlobal makes the one object on first use and hangs its release on the application object
// (QApp::AddCleanupProc). Without an application object nobody would release it: it warns and goes
// on, and d3FreeDGlobal (the cleanup itself) is there for whoever knows better, tests included.
// The fields are plain settings read and written by the whole render and model code.
#pragma once

#include "foundation/qfilesys.h"
#include "foundation/qstring.h"

#include <cstdint>

namespace tarvik {

class DTexture;
struct DTexturePool;
class DTextureManager;
class DGeodeManager;
class DGPUProgramManager;
class QObjectManager;
class DShaderLibrary;

enum DGlobalFlags : uint32_t {
    D3_USE_TEXTURE_POOL = 1, // materials enter new textures in the pool
    D3_USE_OPENGL = 4,       // OpenGL is in use; clear: uploads and shader work are skipped
};

enum DGlobalTexFlags : uint32_t {
    D3_LOAD_TEXTURES = 2,     // load texture files; clear: every texture is a white stub
    D3_COMPRESS_TEXTURES = 4, // use DTEX_COMPRESS where the context offers it
    D3_USE_DDS = 32,          // materials may load DDS files
};

class DGlobal {
public:
    DGlobal();  // the defaults, the pool and the caches
    ~DGlobal(); // releases in the order of the cleanup; the caches report what was left
    DGlobal(const DGlobal&) = delete;
    DGlobal& operator=(const DGlobal&) = delete;

    uint32_t flags; // DGlobalFlags
    uint32_t minFilter, magFilter;            // defaults: GL_LINEAR
    uint32_t wrapS, wrapT, wrapR, wrapQ;      // defaults: GL_CLAMP
    uint32_t envMode;                          // GL_REPLACE
    int32_t maxTexWid, maxTexHgt;              // largest size d3LoadTextureMap hands out
    int32_t texReduction;                      // divisor for texture sizes, 1 for none
    float anisotropy;                          // GL_TEXTURE_MAX_ANISOTROPY_EXT of every texture
    int32_t linearColor;                       // 0: sRGB internal formats
    qstring text;                              // not read here
    float factor;                              // 1.0, not read here
    uint32_t words[4];                         // 0, not read here
    uint32_t texFlags;                         // DGlobalTexFlags
    QPath texturePath;                         // where texture files are searched
    DTexturePool* texturePool;                 // owned
    DTextureManager* textureManager;           // owned
    DGeodeManager* geodeManager;               // owned, 10000 entries
    QObjectManager* gpuShaderManager;          // owned; null until the shader code makes one
    QPath* shaderPath;                         // owned: where shader files are searched
    DGPUProgramManager* gpuProgramManager;     // owned

    // For the model code; all start at 0.
    DTexture* environmentMap;      // borrowed; null if none
    int32_t skin;                  // active skin number
    DShaderLibrary* shaderLibrary; // borrowed; null if none
    uint32_t* settings;            // borrowed settings word; null if none
};

DGlobal* d3GetDGlobal();
// The cleanup registered with the application: releases the object and clears the pointer, so that
// the next d3GetDGlobal makes a fresh one. Nothing happens without an object.
void d3FreeDGlobal();
// The object if one exists, without making one.
DGlobal* d3PeekDGlobal();

} // namespace tarvik
