// Texture loading against pool sharing: N small Targa files (64x64, 32 bits, each a different
// picture) go through d3LoadTextureMap into DBitMapTextures that enter DGlobal's pool; then the
// same N names are asked of the pool again, as materials do for a texture they share.
//   textures <folder> [N] [--gl]     (N defaults to 1000)
// Without --gl D3_USE_OPENGL is clear: the pictures are read, decoded and turned into texture
// objects, but nothing is uploaded. With --gl the program opens an X window (DISPLAY must be set)
// and every texture is uploaded with its mipmaps. The files are written into <folder> first, and
// the first pass reads them from the page cache.
// One line out: "<road> <N> textures: load <ms> ms, pool <ms> ms, <ratio>x".
#include "toolkit/glext.h" // first of the OpenGL headers

#include "foundation/qmessage.h"
#include "images/qbitmap.h"
#include "render/dglobal.h"
#include "render/dtexture.h"
#include "toolkit/qapp.h"
#include "toolkit/qwindow.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace tarvik;

static double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

int main(int argc, char** argv)
{
    const char* folder = nullptr;
    int count = 1000;
    bool gl = false;
    for (int i = 1; i < argc; i++) {
        if (!std::strcmp(argv[i], "--gl")) gl = true;
        else if (!folder) folder = argv[i];
        else count = std::atoi(argv[i]);
    }
    if (!folder || count < 1) {
        std::fprintf(stderr, "usage: textures <folder> [N] [--gl]\n");
        return 2;
    }
    qmsgSetLogFile(false);

    const int side = 64;
    std::vector<std::string> names;
    for (int n = 0; n < count; n++) {
        char name[32];
        std::snprintf(name, sizeof name, "tex%04d.tga", n);
        names.push_back(name);
        std::string path = std::string(folder) + "/" + name;
        QBitMap bm(32, side, side, 0);
        uint8_t* p = bm.GetMemory();
        for (int i = 0; i < side * side; i++, p += 4)
            p[0] = uint8_t(i + n), p[1] = uint8_t(i >> 6), p[2] = uint8_t(n), p[3] = 255;
        if (!bm.WriteTGA(path.c_str(), QBM_FORMAT_TGA)) {
            std::fprintf(stderr, "textures: can't write %s\n", path.c_str());
            return 1;
        }
    }

    new QApp("textures");
    if (gl) {
        app->shell = new QWindow(nullptr, 0, 0, 64, 64);
        app->shell->SetFlags(QWF_X);
        if (!app->shell->Create()) {
            std::fprintf(stderr, "textures: no OpenGL window\n");
            return 1;
        }
    }
    DGlobal* g = d3GetDGlobal();
    if (!gl) g->flags &= ~D3_USE_OPENGL;
    g->texturePath.Add(folder);
    DTexturePool* pool = g->texturePool;

    std::vector<DTexture*> loaded;
    double t0 = Now();
    for (const std::string& name : names) {
        bool ok = false;
        QBitMap* bm = d3LoadTextureMap(name.c_str(), &ok, false);
        DBitMapTexture* tex = new DBitMapTexture(bm);
        delete bm;
        if (!ok) return 1;
        pool->Add(name.c_str(), tex);
        loaded.push_back(tex);
    }
    if (gl) glFinish();
    double loadSeconds = Now() - t0;

    t0 = Now();
    int found = 0;
    for (const std::string& name : names) {
        if (DTexture* tex = pool->Find(name.c_str())) {
            tex->Attach();
            found++;
        }
    }
    double poolSeconds = Now() - t0;
    if (found != count) {
        std::fprintf(stderr, "textures: pool found %d of %d\n", found, count);
        return 1;
    }

    // Every reference goes back: with OpenGL creation's and the pool's, without it the pool's.
    for (DTexture* tex : loaded) {
        if (gl) tex->Detach();
        if (tex->Detach()) delete tex;
    }
    std::printf("%s %d textures: load %.2f ms, pool %.3f ms, %.0fx\n", gl ? "opengl" : "no-opengl", count,
                loadSeconds * 1e3, poolSeconds * 1e3, loadSeconds / poolSeconds);
    app->flags |= QAPPF_KEEP_ALIVE;
    app->Exit(0); // the cleanup of DGlobal
    delete app;
    return 0;
}
