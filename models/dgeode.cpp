// DGeode: the tables, image look-up, merging geobs and the steps after a load.
#include "models/dgeode.h"

#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "models/dgeob.h"
#include "models/dmaterial.h"
#include "models/dshaderlib.h"

#include <cstring>

namespace tarvik {

DGeode::DGeode(const char* geodeName)
    : name(geodeName ? geodeName : ""), materials{}, materialCount(0), flags(0), geobs{}, geobCount(0)
{
}

DGeode::~DGeode() { Destroy(); }

void DGeode::Destroy()
{
    for (int i = 0; i < geobCount && i < DGEODE_MAX_GEOBS; i++) {
        delete geobs[i];
        geobs[i] = nullptr;
    }
    for (int i = 0; i < materialCount && i < DGEODE_MAX_MATERIALS; i++) {
        delete materials[i];
        materials[i] = nullptr;
    }
}

void DGeode::FindMapFile(const char* fileName, qstring& out) const
{
    if (!fileName) fileName = "";
    if (mapDir.IsNotEmpty()) {
        out = mapDir;
        out += "/";
        out += fileName;
        if (QFileExists(out.cstr())) return;
    }
    out = "images/";
    out += fileName;
    if (QFileExists(out.cstr())) return;
    out = fileName;
}

namespace {

// The per-vertex array of 'a' followed by that of 'b' ('width' floats a vertex); a missing one
// counts as zeros. Null, with 'ok' cleared, when memory runs out; null with 'ok' kept when neither
// has the array.
float* JoinArrays(const float* a, int na, const float* b, int nb, int width, bool& ok)
{
    if (!a && !b) return nullptr;
    float* joined = static_cast<float*>(qcalloc(sizeof(float) * size_t(width) * size_t(na + nb)));
    if (!joined) {
        ok = false;
        return nullptr;
    }
    if (a) std::memcpy(joined, a, sizeof(float) * size_t(width) * size_t(na));
    if (b) std::memcpy(joined + size_t(width) * na, b, sizeof(float) * size_t(width) * size_t(nb));
    return joined;
}

void Replace(float*& array, float* joined)
{
    if (array) qfree(array);
    array = joined;
}

} // namespace

// Beyond joining the arrays, a merge decides three things:
// - Bursts: j's bursts follow i's, shifted by i's index count, so that the merged geob paints all
//   of its triangles. A burst that continues i's last one with the same material id and polygon
//   size extends it. A merge that would need more than DGEOB_MAX_BURSTS bursts is refused.
// - Texture channels: a channel that only one of the two has is filled with zeros for the other,
//   as FinalizeGeob does for a geob without channel 0.
// - Tangents: joined when both have them (they belong to each vertex alone); when only one has
//   them they are dropped, and EnsureTangents makes them anew for all vertices when asked.
// Nothing changes unless everything could be allocated.
bool DGeode::MergeGeobs(int i, int j)
{
    if (i == j || i < 0 || j < 0 || i >= geobCount || j >= geobCount || i >= DGEODE_MAX_GEOBS ||
        j >= DGEODE_MAX_GEOBS)
        return false;
    DGeob* a = geobs[i];
    DGeob* b = geobs[j];
    if (!a || !b || a->vertices < 0 || b->vertices < 0 || a->indices < 0 || b->indices < 0) return false;
    if (a->vertices + b->vertices > DGEOB_MAX_MERGED_VERTICES) return false;
    if (!a->index || !b->index || !a->vertex || !b->vertex) return false;
    if (!a->ovrt != !b->ovrt || !a->normal != !b->normal || !a->vcolor != !b->vcolor) return false;

    // The burst table first: it is the one reason to refuse that needs no memory.
    int32_t start[DGEOB_MAX_BURSTS], count[DGEOB_MAX_BURSTS], mtl[DGEOB_MAX_BURSTS], vperp[DGEOB_MAX_BURSTS];
    int bursts = 0;
    for (int pass = 0; pass < 2; pass++) {
        const DGeob* g = pass == 0 ? a : b;
        for (int k = 0; k < g->bursts && k < DGEOB_MAX_BURSTS; k++) {
            int32_t s = g->burstStart[k] + (pass == 0 ? 0 : a->indices * g->burstVperP[k]);
            int last = bursts - 1;
            if (pass == 1 && k == 0 && last >= 0 && start[last] + count[last] == s &&
                mtl[last] == g->burstMtlId[k] && vperp[last] == g->burstVperP[k]) {
                count[last] += g->burstCount[k];
                continue;
            }
            if (bursts == DGEOB_MAX_BURSTS) return false;
            start[bursts] = s, count[bursts] = g->burstCount[k];
            mtl[bursts] = g->burstMtlId[k], vperp[bursts] = g->burstVperP[k];
            bursts++;
        }
    }

    int na = a->vertices, nb = b->vertices;
    bool ok = true;
    unsigned short* index =
        static_cast<unsigned short*>(qcalloc(sizeof(unsigned short) * size_t(a->indices + b->indices)));
    ok = index != nullptr;
    float* vertex = ok ? JoinArrays(a->vertex, na, b->vertex, nb, 3, ok) : nullptr;
    float* ovrt = ok ? JoinArrays(a->ovrt, na, b->ovrt, nb, 3, ok) : nullptr;
    float* normal = ok ? JoinArrays(a->normal, na, b->normal, nb, 3, ok) : nullptr;
    float* vcolor = ok ? JoinArrays(a->vcolor, na, b->vcolor, nb, 3, ok) : nullptr;
    float* tvertex[DGEOB_MAX_CHANNELS] = {};
    for (int c = 0; c < DGEOB_MAX_CHANNELS; c++)
        tvertex[c] = ok ? JoinArrays(a->tvertex[c], na, b->tvertex[c], nb, 2, ok) : nullptr;
    bool joinTangents = a->tangent && b->tangent;
    float* tangent = ok && joinTangents ? JoinArrays(a->tangent, na, b->tangent, nb, 4, ok) : nullptr;
    if (!ok) {
        float* all[] = {vertex, ovrt, normal, vcolor, tvertex[0], tvertex[1], tangent};
        for (float* p : all)
            if (p) qfree(p);
        if (index) qfree(index);
        QERROR("DGeode:MergeGeobs(%d, %d); no memory (geode %s)", i, j, GetName());
        return false;
    }

    std::memcpy(index, a->index, sizeof(unsigned short) * size_t(a->indices));
    for (int k = 0; k < b->indices; k++) index[a->indices + k] = (unsigned short)(b->index[k] + na);
    qfree(a->index);
    a->index = index;
    a->indices += b->indices;
    Replace(a->vertex, vertex);
    Replace(a->ovrt, ovrt);
    Replace(a->normal, normal);
    Replace(a->vcolor, vcolor);
    for (int c = 0; c < DGEOB_MAX_CHANNELS; c++) Replace(a->tvertex[c], tvertex[c]);
    Replace(a->tangent, tangent);
    a->vertices = na + nb;
    for (int k = 0; k < bursts; k++)
        a->burstStart[k] = start[k], a->burstCount[k] = count[k], a->burstMtlId[k] = mtl[k], a->burstVperP[k] = vperp[k];
    a->bursts = bursts;
    a->FinalizeGeob();
    if (a->flags & DGEOB_VBO) { // the buffers follow the arrays
        a->flags &= ~uint32_t(DGEOB_VBO | DGEOB_VBO_ADJACENCY);
        a->DisableVBO();
        a->EnableVBO();
    }

    delete b;
    for (int k = j; k + 1 < geobCount; k++) geobs[k] = geobs[k + 1];
    geobs[geobCount - 1] = nullptr;
    geobCount--;
    return true;
}

void DGeode::EnsureTangents()
{
    bool wanted = false;
    for (int m = 0; m < materialCount && m < DGEODE_MAX_MATERIALS && !wanted; m++)
        wanted = materials[m] && materials[m]->shader && (materials[m]->shader->flags & DSHADER_TANGENTS);
    if (!wanted) return;
    for (int g = 0; g < geobCount && g < DGEODE_MAX_GEOBS; g++)
        if (geobs[g] && !geobs[g]->tangent) geobs[g]->EnsureTangents();
}

void DGeode::FinishLoad()
{
    if (flags & DGEODE_MERGE_GEOBS) {
        // j moves on after a merge as well: the geob that has just moved into place j waits for
        // the next i.
        for (int i = 0; i < geobCount && i < DGEODE_MAX_GEOBS; i++) {
            for (int j = i + 1; j < geobCount && j < DGEODE_MAX_GEOBS; j++) {
                if (geobs[i] && geobs[j] && geobs[i]->materialRef == geobs[j]->materialRef) MergeGeobs(i, j);
            }
        }
    }
    for (int g = 0; g < geobCount && g < DGEODE_MAX_GEOBS; g++)
        if (geobs[g]) geobs[g]->EnsureNormals();
    EnsureTangents();
}

} // namespace tarvik
