// From a file name to a bitmap fit for a texture (d3LoadTextureMap, the stubs, the resampler), and
// the pool of shared textures.
#include "render/dtexture.h"

#include "render/dglobal.h"

#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qmisc.h"
#include "images/qimage.h"

#include <cstring>
#include <vector>

namespace tarvik {

QBitMap* d3MakeStubImage(int kind)
{
    if (kind != 0 && kind != 1) {
        QWARNING("DMakeStubImage(%d) unknown; using type 0 instead", kind);
        kind = 0;
    }
    if (kind == 1) {
        QBitMap* bm = new QBitMap(32, 1, 1, 0);
        bm->SetColorAt(0, 0, QColor(255, 255, 255, 255));
        return bm;
    }
    QBitMap* bm = new QBitMap(32, 2, 2, 0);
    QColor red(255, 0, 0, 255), blue(0, 0, 255, 255);
    bm->SetColorAt(0, 0, red);
    bm->SetColorAt(1, 1, red);
    bm->SetColorAt(0, 1, blue);
    bm->SetColorAt(1, 0, blue);
    return bm;
}

namespace {

// The source pixels one target pixel covers, with their share of it.
struct Taps {
    std::vector<int> first; // per target index: the first entry in 'index'/'weight'; one extra at the end
    std::vector<int> index;
    std::vector<float> weight;
};

Taps MakeTaps(int sn, int dn)
{
    Taps t;
    t.first.reserve(size_t(dn) + 1);
    const double scale = double(sn) / dn;
    for (int d = 0; d < dn; d++) {
        t.first.push_back(int(t.index.size()));
        double a = d * scale, b = (d + 1) * scale;
        int i0 = int(a), i1 = int(b);
        if (i1 >= sn) i1 = sn - 1;
        for (int i = i0; i <= i1; i++) {
            double lo = i > a ? i : a, hi = i + 1 < b ? i + 1 : b;
            if (hi <= lo) continue;
            t.index.push_back(i);
            t.weight.push_back(float((hi - lo) / scale));
        }
    }
    t.first.push_back(int(t.index.size()));
    return t;
}

} // namespace

void d3ScaleImage(const uint8_t* src, int sw, int sh, uint8_t* dst, int dw, int dh)
{
    if (sw <= 0 || sh <= 0 || dw <= 0 || dh <= 0) return;
    const Taps cols = MakeTaps(sw, dw), rows = MakeTaps(sh, dh);
    std::vector<float> acc(size_t(dw) * 4), line(size_t(dw) * 4);
    for (int y = 0; y < dh; y++) {
        std::fill(acc.begin(), acc.end(), 0.0f);
        for (int r = rows.first[y]; r < rows.first[y + 1]; r++) {
            const uint8_t* s = src + size_t(rows.index[r]) * sw * 4;
            const float wy = rows.weight[r];
            for (int x = 0; x < dw; x++) {
                float c0 = 0, c1 = 0, c2 = 0, c3 = 0;
                for (int k = cols.first[x]; k < cols.first[x + 1]; k++) {
                    const uint8_t* p = s + size_t(cols.index[k]) * 4;
                    const float w = cols.weight[k];
                    c0 += w * p[0];
                    c1 += w * p[1];
                    c2 += w * p[2];
                    c3 += w * p[3];
                }
                float* a = &acc[size_t(x) * 4];
                a[0] += wy * c0;
                a[1] += wy * c1;
                a[2] += wy * c2;
                a[3] += wy * c3;
            }
        }
        uint8_t* d = dst + size_t(y) * dw * 4;
        for (int i = 0; i < dw * 4; i++) {
            float v = acc[size_t(i)] + 0.5f;
            d[i] = uint8_t(v >= 255.0f ? 255 : v <= 0.0f ? 0 : int(v));
        }
    }
}

QBitMap* d3LoadTextureMap(const char* name, bool* loaded, bool silent)
{
    DGlobal* g = d3GetDGlobal();
    if (!(g->texFlags & D3_LOAD_TEXTURES)) {
        *loaded = true;
        return d3MakeStubImage(1);
    }
    if (!name) name = "";
    qstring full;
    g->texturePath.FindFile(name, full, nullptr);

    QImage* img = nullptr;
    if (QFileExists(full.cstr(), true)) {
        img = new QImage(full.cstr());
        if (!img->IsOK()) {
            delete img;
            img = nullptr;
        }
    }
    if (!img) {
        if (!silent) QWARNING("d3LoadTextureMap(); can't load '%s'; creating red/blue stub image\n", full.cstr());
        *loaded = false;
        return d3MakeStubImage(0);
    }
    *loaded = true;

    const int w = img->GetWidth(), h = img->GetHeight();
    if (g->texReduction == 1 && w <= g->maxTexWid && h <= g->maxTexHgt) return img;

    // Rounded up to a power of two only when the picture is scaled anyway.
    const int divisor = g->texReduction > 1 ? g->texReduction : 1;
    int nw = QNearestPowerOf2(w / divisor, false), nh = QNearestPowerOf2(h / divisor, false);
    if (nw > g->maxTexWid) nw = g->maxTexWid;
    if (nh > g->maxTexHgt) nh = g->maxTexHgt;
    if (nw < 1) nw = 1;
    if (nh < 1) nh = 1;

    QBitMap* bm = new QBitMap(32, nw, nh, 0);
    if (!bm->GetMemory() || !img->GetMemory() || img->GetDepth() != 32) {
        QERROR("d3LoadTextureMap(); can't scale '%s' (%dx%d) to %dx%d", full.cstr(), w, h, nw, nh);
        delete bm;
        return img;
    }
    d3ScaleImage(img->GetMemory(), w, h, bm->GetMemory(), nw, nh);
    delete img;
    return bm;
}

// FNV-1a over the bytes of the name.
static uint32_t NameKey(const char* name)
{
    uint32_t h = 2166136261u;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(name); *p; p++) h = (h ^ *p) * 16777619u;
    return h;
}

DTexturePool::DTexturePool()
    : names(static_cast<char**>(qcalloc(sizeof(char*) * MAX_TEXTURES))),
      textures(static_cast<DTexture**>(qcalloc(sizeof(DTexture*) * MAX_TEXTURES))), maxTextures(0),
      numTextures(0), keys(static_cast<uint32_t*>(qcalloc(sizeof(uint32_t) * MAX_TEXTURES))),
      index(static_cast<int32_t*>(qcalloc(sizeof(int32_t) * INDEX_SLOTS)))
{
    if (names && textures && keys && index) maxTextures = MAX_TEXTURES;
    else QERROR("DTexturePool(); out of memory");
}

DTexturePool::~DTexturePool()
{
    for (int i = 0; i < numTextures; i++) qfree(names[i]);
    qfree(names);
    qfree(textures);
    qfree(keys);
    qfree(index);
}

void DTexturePool::Index(int slot)
{
    uint32_t s = keys[slot] & (INDEX_SLOTS - 1);
    while (index[s]) s = (s + 1) & (INDEX_SLOTS - 1);
    index[s] = slot + 1;
}

bool DTexturePool::Add(const char* name, DTexture* tex)
{
    if (!name) name = "";
    if (Find(name)) return true;
    if (numTextures >= maxTextures) {
        QWARNING("DTexturePool:Add(); max reached (%d)", maxTextures);
        return false;
    }
    char* copy = qstrdup(name);
    if (!copy) {
        QERROR("DTexturePool:Add(); out of memory for '%s'", name);
        return false;
    }
    names[numTextures] = copy;
    textures[numTextures] = tex;
    keys[numTextures] = NameKey(name);
    Index(numTextures);
    numTextures++;
    return true;
}

DTexture* DTexturePool::Find(const char* name) const
{
    if (!name) return nullptr;
    const uint32_t key = NameKey(name);
    // The index is never full (INDEX_SLOTS > MAX_TEXTURES), so the probe ends at an empty slot.
    for (uint32_t s = key & (INDEX_SLOTS - 1); index[s]; s = (s + 1) & (INDEX_SLOTS - 1)) {
        const int i = index[s] - 1;
        if (keys[i] == key && std::strcmp(names[i], name) == 0) return textures[i];
    }
    return nullptr;
}

void DTexturePool::Remove(DTexture* tex)
{
    if (!tex) {
        QWARNING("DTexturePool:Remove() null arg\n");
        return;
    }
    for (int i = 0; i < numTextures; i++) {
        if (textures[i] != tex) continue;
        qfree(names[i]);
        const size_t rest = size_t(numTextures - i - 1);
        std::memmove(names + i, names + i + 1, sizeof(char*) * rest);
        std::memmove(textures + i, textures + i + 1, sizeof(DTexture*) * rest);
        std::memmove(keys + i, keys + i + 1, sizeof(uint32_t) * rest);
        numTextures--;
        names[numTextures] = nullptr;
        textures[numTextures] = nullptr;
        keys[numTextures] = 0;
        // The later slots moved down: their index entries are stale.
        std::memset(index, 0, sizeof(int32_t) * INDEX_SLOTS);
        for (int k = 0; k < numTextures; k++) Index(k);
        return;
    }
}

} // namespace tarvik
