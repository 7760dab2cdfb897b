// Textures on a real OpenGL context under a private X server: the upload of a bitmap read back
// level by level, the sampling state the driver got, and the texture cache's road from a file.
#include "toolkit/glext.h" // first of the OpenGL headers

#include "images/qbitmap.h"
#include "render/dglobal.h"
#include "render/dtexture.h"
#include "render/qobjectmgr.h"
#include "tests/render/rendertest.h"
#include "tests/support/testsupport.h"
#include "tests/toolkit/xserver.h"
#include "toolkit/qapp.h"
#include "toolkit/qglcontext.h"
#include "toolkit/qwindow.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace tarvik {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

class DTextureGLTest : public test::XServerTest {
protected:
    void SetUp() override
    {
        test::XServerTest::SetUp();
        if (IsSkipped()) return;
        std::string err;
        ASSERT_TRUE(rtest::MakeGLShell("texgltest", 32, 32, &err)) << err;
        glGetError();
    }
    void TearDown() override
    {
        if (!app) return;
        CaptureStderr();
        d3FreeDGlobal(); // while the context still stands
        delete app;
        GetCapturedStderr();
    }

    // One mip level as the driver holds it.
    static std::vector<uint8_t> ReadLevel(int level, int* w, int* h)
    {
        glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_WIDTH, w);
        glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_HEIGHT, h);
        std::vector<uint8_t> px(size_t(*w * *h * 4));
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        if (!px.empty()) glGetTexImage(GL_TEXTURE_2D, level, GL_RGBA, GL_UNSIGNED_BYTE, px.data());
        return px;
    }

    test::TempDir dir{true};
};

TEST_F(DTextureGLTest, BitMapUploadReadsBackAtEveryMipLevel)
{
    // 8x4 with a different value in every byte shows flips, swaps and strides at once.
    const int w = 8, h = 4;
    QBitMap* bm = new QBitMap(32, w, h, 0);
    for (int i = 0; i < w * h * 4; i++) bm->GetMemory()[i] = uint8_t(i * 7 + (i >> 2) * 3);
    std::vector<uint8_t> expect(bm->GetMemory(), bm->GetMemory() + w * h * 4);

    CaptureStderr();
    DBitMapTexture* tex = new DBitMapTexture(bm);
    std::string err = GetCapturedStderr();
    delete bm;
    tex->SetName("upload");
    ASSERT_NE(tex->GetID(), 0u);
    EXPECT_EQ(tex->GetRefCount(), 1);
    EXPECT_EQ(tex->GetGLContext(), QGLContext::GetCurrent());
    EXPECT_EQ(tex->GetWidth() * 10 + tex->GetHeight(), 84);
    EXPECT_EQ(tex->GetBitMapWidth(), w);
    EXPECT_FALSE(rtest::HasText(err, "OpenGL error")) << err;
    // A fresh context counts from 1, and that is when the guard looks for leftovers.
    EXPECT_EQ(rtest::HasText(err, "## First texture; verify that all textures are released"), tex->GetID() == 1u);

    ASSERT_NE(gll::glGenerateMipmapEXT, nullptr) << "the driver makes no mipmaps";
    tex->Select();
    int lw = 0, lh = 0, pw = 0, ph = 0, level = 0;
    for (;; level++) {
        std::vector<uint8_t> got = ReadLevel(level, &lw, &lh);
        ASSERT_FALSE(got.empty()) << "level " << level;
        if (level > 0) {
            // Each level is the box-filtered half of the one above.
            std::vector<uint8_t> half(got.size());
            d3ScaleImage(expect.data(), pw, ph, half.data(), lw, lh);
            expect = half;
        }
        ASSERT_EQ(got.size(), expect.size()) << "level " << level;
        for (size_t i = 0; i < got.size(); i++)
            ASSERT_LE(std::abs(got[i] - expect[i]), level ? 1 : 0) << "level " << level << " byte " << i;
        pw = lw, ph = lh;
        if (lw == 1 && lh == 1) break;
    }
    EXPECT_EQ(level, 3); // 8x4, 4x2, 2x1, 1x1

    GLint value = 0;
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_INTERNAL_FORMAT, &value);
    EXPECT_EQ(value, GL_RGBA);
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &value);
    EXPECT_EQ(value, GL_LINEAR_MIPMAP_LINEAR);
    tex->SetWrap(GL_CLAMP_TO_EDGE, GL_MIRRORED_REPEAT, GL_REPEAT, GL_REPEAT);
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, &value);
    EXPECT_EQ(value, GL_MIRRORED_REPEAT);
    tex->SetLevels(1, 2);
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, &value);
    EXPECT_EQ(value, 2);

    CaptureStderr();
    tex->EnableMipmap(false);
    EXPECT_TRUE(rtest::HasText(GetCapturedStderr(), "DTexture:EnableMipmap() called after creation (upload)"));
    EXPECT_NE(tex->GetFlags() & DTEX_MIPMAP, 0u);

    GLuint id = tex->GetID();
    EXPECT_TRUE(tex->Detach());
    delete tex;
    EXPECT_FALSE(glIsTexture(id));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(DTextureGLTest, CacheMakesUncompressedTexturesAndStubsMissingFiles)
{
    QBitMap bm(32, 3, 5, 0); // not a power of two: kept as it is
    bm.SetColorAt(0, 0, QColor(10, 20, 30, 40));
    ASSERT_TRUE(bm.WriteTGA(dir.File("pic.tga").c_str(), QBM_FORMAT_TGA));
    DGlobal* g = d3GetDGlobal();
    g->texFlags |= D3_COMPRESS_TEXTURES;
    g->texturePath.Add(dir.Path().c_str());
    DTextureManager* cache = g->textureManager;

    CaptureStderr();
    DTexture* pic = static_cast<DTexture*>(cache->Get("pic.tga"));
    DTexture* missing = static_cast<DTexture*>(cache->Get("gone.tga"));
    std::string err = GetCapturedStderr();
    ASSERT_NE(pic, nullptr);
    EXPECT_EQ(cache->Get("pic.tga"), pic);
    EXPECT_EQ(pic->GetFlags() & DTEX_COMPRESS, 0u);
    EXPECT_EQ(pic->GetInternalFormat(), uint32_t(GL_RGBA));
    EXPECT_EQ(pic->GetWidth() * 10 + pic->GetHeight(), 35);
    EXPECT_STREQ(pic->GetName(), "pic.tga"); // the path is the loader's business
    pic->Select();
    int w = 0, h = 0;
    std::vector<uint8_t> level0 = ReadLevel(0, &w, &h);
    ASSERT_EQ(level0.size(), 60u);
    EXPECT_EQ(level0[(4 * 3 + 0) * 4 + 3], 40); // top left of the picture: last row in memory

    EXPECT_TRUE(rtest::HasText(err, "can't load 'gone.tga'; creating red/blue stub image"));
    EXPECT_TRUE(rtest::HasText(err, "DTextureManager:MakeObject(gone.tga) couldn't find image"));
    EXPECT_EQ(missing->GetWidth() * 10 + missing->GetHeight(), 22);

    GLuint id = pic->GetID();
    EXPECT_TRUE(cache->Release(pic));
    EXPECT_TRUE(glIsTexture(id)); // one reference left
    EXPECT_TRUE(cache->Release(pic));
    EXPECT_FALSE(glIsTexture(id));
    EXPECT_EQ(cache->GetNumObjects(), 1);
    EXPECT_TRUE(cache->Release(missing));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

} // namespace
} // namespace tarvik
