// Texture objects without a display (D3_USE_OPENGL clear or no context): DGlobal's life, stubs,
// loading and reduction of pictures, formats, counting and the pool. The OpenGL road is in
// dtexture_gl_test.cpp.
#include "render/dglobal.h"
#include "render/dtexture.h"
#include "toolkit/glext.h" // first of the OpenGL headers

#include "foundation/qmessage.h"
#include "images/qbitmap.h"
#include "tests/render/rendertest.h"
#include "tests/support/testsupport.h"
#include "toolkit/qapp.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>
#include <vector>

namespace tarvik {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

class DTextureTest : public testing::Test {
protected:
    void SetUp() override
    {
        CaptureStderr();
        d3GetDGlobal()->flags &= ~D3_USE_OPENGL;
        GetCapturedStderr();
    }
    void TearDown() override { d3FreeDGlobal(); }

    // A Targa file of w x h whose pixel (x, y) in memory order is (x, y, x+y, 255).
    std::string WriteTGA(const std::string& name, int w, int h)
    {
        QBitMap bm(32, w, h, 0);
        for (int y = 0; y < h; y++)
            for (int x = 0; x < w; x++) {
                uint8_t* p = bm.GetAddress(x, y);
                p[0] = uint8_t(x), p[1] = uint8_t(y), p[2] = uint8_t(x + y), p[3] = 255;
            }
        std::string path = dir.File(name);
        EXPECT_TRUE(bm.WriteTGA(path.c_str(), QBM_FORMAT_TGA));
        return path;
    }

    test::TempDir dir{true}; // the warnings' QLOG.txt
};

static std::vector<uint8_t> Pixels(const QBitMap* bm)
{
    return std::vector<uint8_t>(bm->GetMemory(), bm->GetMemory() + bm->GetWidth() * bm->GetHeight() * 4);
}

TEST(DGlobalTest, WithoutApplicationWarnsOnceAndCanBeFreed)
{
    test::TempDir dir(true);
    d3FreeDGlobal(); // whatever an earlier test left
    CaptureStderr();
    DGlobal* g = d3GetDGlobal();
    EXPECT_EQ(d3GetDGlobal(), g);
    std::string err = GetCapturedStderr();
    const char* text = "d3GetDGlobal(); no 'app' yet, so cleanup of dglobal won't be called -> memory leak";
    EXPECT_TRUE(rtest::HasText(err, text));
    EXPECT_EQ(err.find(text), err.rfind(text));
    // The defaults that the rest leans on.
    EXPECT_EQ(g->flags, 5u);
    EXPECT_EQ(g->texFlags, 10u);
    EXPECT_EQ(g->wrapS, uint32_t(GL_CLAMP));
    EXPECT_EQ(g->maxTexWid * 10000 + g->maxTexHgt, 4096 * 10000 + 4096);
    EXPECT_EQ(g->texReduction, 1);
    EXPECT_EQ(g->linearColor, 1);
    ASSERT_NE(g->texturePool, nullptr);
    EXPECT_EQ(g->texturePool->maxTextures, 3000);
    d3FreeDGlobal();
    EXPECT_EQ(d3PeekDGlobal(), nullptr);
    d3FreeDGlobal(); // nothing left to free
}

TEST(DGlobalTest, WithApplicationIsReleasedByItsCleanup)
{
    test::TempDir dir(true);
    d3FreeDGlobal();
    new QApp("dglobaltest");
    CaptureStderr();
    DGlobal* g = d3GetDGlobal();
    EXPECT_FALSE(rtest::HasText(GetCapturedStderr(), "no 'app' yet"));
    ASSERT_EQ(d3PeekDGlobal(), g);
    app->flags |= QAPPF_KEEP_ALIVE;
    CaptureStderr();
    app->Exit(0);
    GetCapturedStderr();
    EXPECT_EQ(d3PeekDGlobal(), nullptr);
    delete app;
}

TEST_F(DTextureTest, StubImages)
{
    struct Case {
        int kind;
        int wid;
        std::vector<uint8_t> mem; // memory order: row 0 is the bottom row
        bool warns;
    };
    const std::vector<uint8_t> chequer = {0, 0, 255, 255, 255, 0, 0, 255, 255, 0, 0, 255, 0, 0, 255, 255};
    const Case cases[] = {
        {0, 2, chequer, false},
        {1, 1, {255, 255, 255, 255}, false},
        {5, 2, chequer, true},
        {-1, 2, chequer, true},
    };
    for (const Case& c : cases) {
        CaptureStderr();
        QBitMap* bm = d3MakeStubImage(c.kind);
        std::string err = GetCapturedStderr();
        EXPECT_EQ(bm->GetWidth() * 10 + bm->GetHeight(), c.wid * 11) << c.kind;
        EXPECT_EQ(Pixels(bm), c.mem) << c.kind;
        EXPECT_EQ(err.find("DMakeStubImage(" + std::to_string(c.kind) + ") unknown; using type 0 instead") !=
                      std::string::npos,
                  c.warns)
            << err;
        delete bm;
    }
}

TEST_F(DTextureTest, LoadTextureMapReducesOnlyWhenItMust)
{
    struct Case {
        int w, h, reduction, maxWid;
        int outW, outH;
    };
    const Case cases[] = {
        {5000, 100, 1, 4096, 4096, 128}, // too wide: 8192 capped, 100 rounded up
        {640, 480, 2, 4096, 512, 256},   // 320 -> 512, 240 -> 256
        {300, 300, 1, 4096, 300, 300},   // within the limits: kept as it is, not a power of two
        {300, 300, 1, 256, 256, 256},    // 512 capped at 256 both ways
        {3, 1, 4, 4096, 1, 1},           // a divisor above the size still gives one pixel
    };
    for (const Case& c : cases) {
        DGlobal* g = d3GetDGlobal();
        g->texReduction = c.reduction;
        g->maxTexWid = g->maxTexHgt = c.maxWid;
        std::string path = WriteTGA("pic.tga", c.w, c.h);
        bool loaded = false;
        QBitMap* bm = d3LoadTextureMap(path.c_str(), &loaded, false);
        EXPECT_TRUE(loaded);
        EXPECT_EQ(bm->GetWidth() * 10000 + bm->GetHeight(), c.outW * 10000 + c.outH) << c.w << "x" << c.h;
        if (c.outW == c.w && c.outH == c.h) {
            EXPECT_EQ(bm->GetAddress(7, 5)[2], 12); // the file's own pixels
        }
        delete bm;
    }
}

TEST_F(DTextureTest, LoadTextureMapSearchesThePathAndStubsWhatIsMissing)
{
    std::string sub = dir.File("sub");
    ASSERT_EQ(mkdir(sub.c_str(), 0700), 0);
    WriteTGA("sub/found.tga", 4, 2);
    test::WriteFile(dir.File("sub/broken.tga"), "not a picture");
    DGlobal* g = d3GetDGlobal();
    g->texturePath.Add("nowhere");
    g->texturePath.Add(sub.c_str());

    struct Case {
        const char* name;
        uint32_t texFlags;
        bool silent;
        bool loaded;
        int wid;
        std::string warning; // empty: none
    };
    const std::string stubText = "; creating red/blue stub image";
    const Case cases[] = {
        {"found.tga", 10, false, true, 4, ""},
        {"missing.tga", 10, false, false, 2, "d3LoadTextureMap(); can't load 'missing.tga'" + stubText},
        {"broken.tga", 10, false, false, 2, "d3LoadTextureMap(); can't load '" + sub + "/broken.tga'" + stubText},
        {"missing.tga", 10, true, false, 2, ""},
        {"missing.tga", 8, false, true, 1, ""}, // loading off: white, and "loaded"
    };
    for (const Case& c : cases) {
        g->texFlags = c.texFlags;
        bool loaded = !c.loaded;
        CaptureStderr();
        QBitMap* bm = d3LoadTextureMap(c.name, &loaded, c.silent);
        std::string err = GetCapturedStderr();
        EXPECT_EQ(loaded, c.loaded) << c.name;
        EXPECT_EQ(bm->GetWidth(), c.wid) << c.name;
        if (c.warning.empty()) {
            EXPECT_FALSE(rtest::HasText(err, "can't load")) << c.name;
        } else {
            EXPECT_TRUE(rtest::HasText(err, c.warning));
        }
        delete bm;
    }
}

TEST(DScaleImageTest, BoxFilterAveragesWhatEachPixelCovers)
{
    // One channel shown; all four get the same treatment.
    struct Case {
        int sw, sh, dw, dh;
        std::vector<uint8_t> in, out;
    };
    const Case cases[] = {
        {2, 2, 1, 1, {10, 20, 30, 41}, {25}},               // 101/4 rounds to 25
        {4, 1, 2, 1, {0, 100, 200, 250}, {50, 225}},        // pairs
        {3, 1, 2, 1, {0, 90, 180}, {30, 150}},              // 1.5 pixels each: 0+45, 45+180
        {1, 2, 1, 4, {8, 200}, {8, 8, 200, 200}},           // upward: each source row twice
        {3, 2, 3, 2, {1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5, 6}} // same size: a copy
    };
    for (const Case& c : cases) {
        std::vector<uint8_t> src, dst(size_t(c.dw * c.dh * 4), 0xEE);
        for (uint8_t v : c.in) src.insert(src.end(), {v, v, v, uint8_t(255 - v)});
        d3ScaleImage(src.data(), c.sw, c.sh, dst.data(), c.dw, c.dh);
        std::vector<uint8_t> red, alpha;
        for (size_t i = 0; i < dst.size(); i += 4) red.push_back(dst[i]), alpha.push_back(uint8_t(255 - dst[i + 3]));
        EXPECT_EQ(red, c.out) << c.sw << "x" << c.sh << " -> " << c.dw << "x" << c.dh;
        EXPECT_EQ(alpha, c.out);
    }
}

TEST_F(DTextureTest, InternalFormats)
{
    struct Case {
        int linear;
        bool compress;
        uint32_t in, out;
    };
    const Case cases[] = {
        {1, false, GL_RGBA, GL_RGBA},
        {1, false, GL_COMPRESSED_RGB, GL_RGB},
        {1, false, GL_COMPRESSED_RGBA, GL_RGBA},
        {1, false, GL_RGB, GL_RGBA}, // anything else is RGBA
        {0, false, GL_RGB, GL_SRGB8_ALPHA8},
        {1, true, GL_RGBA, GL_COMPRESSED_RGBA},
        {1, true, GL_RGB, GL_COMPRESSED_RGB},
        {1, true, GL_LUMINANCE, GL_LUMINANCE},
        {0, true, GL_RGB, GL_COMPRESSED_SRGB_ALPHA},
        {0, true, GL_RGBA, GL_COMPRESSED_SRGB_ALPHA},
        {0, true, GL_SRGB8_ALPHA8, GL_SRGB8_ALPHA8},
    };
    for (const Case& c : cases) {
        d3GetDGlobal()->linearColor = c.linear;
        DTexture t;
        EXPECT_EQ(t.GetInternalFormat(), c.linear ? uint32_t(GL_RGBA) : uint32_t(GL_SRGB8_ALPHA8));
        if (c.compress) t.SetFlags(t.GetFlags() | DTEX_COMPRESS);
        t.SetInternalFormat(c.in);
        EXPECT_EQ(t.GetInternalFormat(), c.out) << std::hex << c.in << " linear " << c.linear;
    }
    // Compression can only be asked of a context that offers it: none here.
    d3GetDGlobal()->linearColor = 1;
    DTexture t;
    EXPECT_EQ(t.GetFlags(), uint32_t(DTEX_MIPMAP));
    t.SetFlags(t.GetFlags() | DTEX_COMPRESS);
    t.SetInternalFormat(GL_RGB);
    t.DisableCompression();
    EXPECT_EQ(t.GetInternalFormat(), uint32_t(GL_RGB));
}

TEST_F(DTextureTest, SizeMipmapAndWrapSettings)
{
    DTexture t;
    t.SetName("t1");
    t.SetSize(64, 32);
    CaptureStderr();
    t.SetSize(8, 8);
    EXPECT_TRUE(rtest::HasText(GetCapturedStderr(), "DTexture::SetSize() called twice for the same object (t1)"));
    EXPECT_EQ(t.GetWidth() * 100 + t.GetHeight(), 6432);

    EXPECT_EQ(t.GetMinFilter(), uint32_t(GL_LINEAR_MIPMAP_LINEAR));
    t.EnableMipmap(false);
    EXPECT_EQ(t.GetFlags() & DTEX_MIPMAP, 0u);
    EXPECT_EQ(t.GetMinFilter(), uint32_t(GL_NEAREST));
    t.EnableMipmap(true);
    EXPECT_EQ(t.GetFlags() & DTEX_MIPMAP, uint32_t(DTEX_MIPMAP));
    EXPECT_EQ(t.GetMinFilter(), uint32_t(GL_NEAREST)); // the filters stay

    // Unchanged wraps do nothing, not even the complaint about the missing context.
    CaptureStderr();
    t.SetWrap(GL_REPEAT, GL_REPEAT, GL_REPEAT, GL_REPEAT);
    EXPECT_EQ(GetCapturedStderr(), "");
    CaptureStderr();
    t.SetWrap(GL_CLAMP, GL_REPEAT, GL_REPEAT, GL_CLAMP);
    EXPECT_TRUE(rtest::HasText(GetCapturedStderr(), "DTexture:Select(); no OpenGL context yet"));
    EXPECT_EQ(t.GetWrapS() + t.GetWrapQ(), uint32_t(2 * GL_CLAMP));
}

TEST_F(DTextureTest, CountingPoolAndDetach)
{
    DTexturePool* pool = d3GetDGlobal()->texturePool;
    DTexture* a = new DTexture;
    a->SetName("a");
    a->CreateTexture(); // no context: only the count
    EXPECT_EQ(a->GetRefCount(), 1);
    EXPECT_EQ(a->GetBytesPerPixel(), 4);
    ASSERT_TRUE(pool->Add("a.tga", a));
    a->Attach();
    EXPECT_FALSE(a->Detach());
    EXPECT_EQ(pool->Find("a.tga"), a);
    EXPECT_TRUE(a->Detach());
    EXPECT_EQ(pool->Find("a.tga"), nullptr);
    // One more would go negative; reported only while OpenGL is in use.
    for (bool gl : {false, true}) {
        d3GetDGlobal()->flags = gl ? uint32_t(D3_USE_OPENGL) : 0u;
        CaptureStderr();
        EXPECT_FALSE(a->Detach());
        EXPECT_EQ(GetCapturedStderr().find("DTexture:Detach(); refCount<0 (refCount=") != std::string::npos, gl);
    }
    delete a;

    DTexture* b = new DTexture;
    b->SetName("b");
    b->CreateTexture();
    CaptureStderr();
    b->CreateTexture();
    EXPECT_TRUE(rtest::HasText(GetCapturedStderr(), "DTexture::CreateTexture(); texture was already created (b)"));
    CaptureStderr();
    delete b; // referenced twice: the object goes all the same
    std::string err = GetCapturedStderr();
    EXPECT_TRUE(rtest::HasText(err, "DTexture dtor (b); reference count was still 2! Use D3_DETACH_TEXTURE"));
    EXPECT_TRUE(rtest::HasText(err, "DTexture dtor: Expecting crash, dangling texture pointer."));
}

TEST_F(DTextureTest, PoolSharesByExactNameAndKeepsOrder)
{
    DTexturePool pool;
    DTexture t[4];
    EXPECT_TRUE(pool.Add("road.tga", &t[0]));
    EXPECT_TRUE(pool.Add("road.tga", &t[1])); // known: the first stays
    EXPECT_TRUE(pool.Add("Road.tga", &t[2]));
    EXPECT_TRUE(pool.Add("rock.tga", &t[3]));
    EXPECT_EQ(pool.numTextures, 3);
    EXPECT_EQ(pool.Find("road.tga"), &t[0]);
    EXPECT_EQ(pool.Find("Road.tga"), &t[2]);
    EXPECT_EQ(pool.Find("road"), nullptr);
    EXPECT_EQ(pool.Find(""), nullptr);
    pool.Remove(&t[0]);
    EXPECT_STREQ(pool.names[0], "Road.tga");
    EXPECT_STREQ(pool.names[1], "rock.tga");
    EXPECT_EQ(pool.names[2], nullptr);
    EXPECT_EQ(pool.Find("road.tga"), nullptr);
    EXPECT_EQ(pool.Find("rock.tga"), &t[3]); // found where it moved to
    pool.Remove(&t[1]); // not there: nothing
    EXPECT_EQ(pool.numTextures, 2);
    CaptureStderr();
    pool.Remove(nullptr);
    EXPECT_TRUE(rtest::HasText(GetCapturedStderr(), "DTexturePool:Remove() null arg"));

    for (int i = pool.numTextures; i < DTexturePool::MAX_TEXTURES; i++)
        ASSERT_TRUE(pool.Add(("n" + std::to_string(i)).c_str(), &t[3]));
    CaptureStderr();
    EXPECT_FALSE(pool.Add("one too many", &t[3]));
    EXPECT_TRUE(rtest::HasText(GetCapturedStderr(), "DTexturePool:Add(); max reached (3000)"));
    EXPECT_TRUE(pool.Add("rock.tga", &t[0])); // a known name is no new entry, even when full
    EXPECT_EQ(pool.Find("rock.tga"), &t[3]);
    pool.Remove(&t[2]);
    for (int i = 2; i < DTexturePool::MAX_TEXTURES; i++)
        ASSERT_EQ(pool.Find(("n" + std::to_string(i)).c_str()), &t[3]) << i;
}

TEST_F(DTextureTest, BitMapTextureWithoutOpenGLKeepsNothing)
{
    QBitMap* bm = d3MakeStubImage(0);
    DBitMapTexture t(bm);
    delete bm;
    EXPECT_EQ(t.GetBitMap(), nullptr);
    EXPECT_EQ(t.GetWidth(), 0);
    EXPECT_STREQ(t.GetTypeName(), "bitmapTexture");
    t.SetName("chequer");
    t.SetSize(2, 3);
    CaptureStderr();
    t.DbgReport();
    EXPECT_TRUE(rtest::HasText(GetCapturedStderr(), " chequer (class DBitMapTexture) size 2x3, refs 0\n"));
}

} // namespace
} // namespace tarvik
