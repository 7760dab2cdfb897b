// DGeob: construction and freeing, finalising, the box, the burst look-ups and the Ensure steps.
#include "models/dgeob.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "models/dgeode.h"
#include "models/dmaterial.h"

namespace tarvik {

namespace {

template <class T> void FreeArray(T*& p)
{
    if (p) qfree(p); // qfree counts a null as well, so it never sees one
    p = nullptr;
}

const char* GeodeName(const DGeode* geode) { return geode ? geode->GetName() : ""; }

} // namespace

DGeob::DGeob(DGeode* owner)
    : flags(0), paintFlags(0), vertex(nullptr), index(nullptr), indices(0), normal(nullptr),
      tvertex{nullptr, nullptr}, vcolor(nullptr), tangent(nullptr), vertexBuffer(0), indexBuffer(0),
      normalBuffer(0), colorBuffer(0), tangentBuffer(0), tvertexBuffer{0, 0}, vertices(0), burstStart{},
      burstCount{}, burstMtlId{}, burstVperP{}, bursts(0), materialRef(0), radius(0), center{0, 0, 0},
      geode(owner), ovrt(nullptr)
{
}

DGeob::~DGeob() { Free(); }

void DGeob::Free()
{
    DisableVBO();
    flags &= ~uint32_t(DGEOB_VBO | DGEOB_VBO_ADJACENCY);
    FreeArray(vertex);
    FreeArray(index);
    FreeArray(normal);
    for (float*& channel : tvertex) FreeArray(channel);
    FreeArray(vcolor);
    FreeArray(tangent);
    FreeArray(ovrt);
    indices = 0;
    vertices = 0;
    bursts = 0;
}

void DGeob::FinalizeGeob()
{
    if (index) {
        for (int i = 0; i < indices; i++) {
            if (index[i] < vertices) continue;
            QWARNING("Geode %s has bad indices in geob (index[%d]=%d>%d vertices.", GeodeName(geode), i,
                     int(index[i]), int(vertices));
            index[i] = 0;
        }
    }

    float box[6];
    GetBox(box);
    aabb = DBox(DVector3(box[0], box[1], box[2]), DVector3(box[3], box[4], box[5]));
    for (int k = 0; k < 3; k++) center[k] = (box[k] + box[3 + k]) * 0.5f;
    radius = aabb.GetRadius();

    if (!tvertex[0]) {
        QWARNING("Geode %s has geobs without texcoords; generating fake values", GeodeName(geode));
        tvertex[0] = static_cast<float*>(qcalloc(sizeof(float) * 2 * size_t(vertices > 0 ? vertices : 0)));
        if (!tvertex[0]) QERROR("Geode %s: no memory for texcoords", GeodeName(geode));
    }
}

void DGeob::GetBox(float out[6]) const
{
    if (vertices <= 0 || !vertex) {
        for (int k = 0; k < 6; k++) out[k] = 0;
        return;
    }
    // A coordinate beyond 99999 in every vertex leaves the start value on its side.
    for (int k = 0; k < 3; k++) out[k] = 99999.0f, out[3 + k] = -99999.0f;
    for (int v = 0; v < vertices; v++) {
        for (int k = 0; k < 3; k++) {
            float c = vertex[v * 3 + k];
            if (c < out[k]) out[k] = c;
            if (c > out[3 + k]) out[3 + k] = c;
        }
    }
}

int DGeob::FindBurst(int position) const
{
    for (int b = 0; b < bursts && b < DGEOB_MAX_BURSTS; b++)
        if (position < burstStart[b] + burstCount[b]) return b;
    return -1;
}

DMaterial* DGeob::GetBurstMaterial(int id) const
{
    if (!geode || geode->materialCount <= 0) return nullptr;
    // A reference beyond the table selects its nearest end.
    int count = geode->materialCount < DGEODE_MAX_MATERIALS ? geode->materialCount : DGEODE_MAX_MATERIALS;
    int ref = materialRef < 0 ? 0 : (materialRef >= count ? count - 1 : materialRef);
    DMaterial* material = geode->materials[ref];
    if (!material || material->submaterialCount <= 0) return material;
    int subs = material->submaterialCount < DMATERIAL_MAX_SUBMATERIALS ? material->submaterialCount
                                                                      : DMATERIAL_MAX_SUBMATERIALS;
    int n = id < 0 ? 0 : (id >= subs ? subs - 1 : id);
    return material->submaterials[n];
}

void DGeob::EnsureNormals()
{
    if (!normal) RethinkNormals();
}

void DGeob::EnsureTangents()
{
    if (tangent) return;
    EnsureNormals();
    if (!tangent && normal) CalculateTangentArray(vertices, vertex, normal, this, tvertex[0], indices / 3, index);
}

} // namespace tarvik
