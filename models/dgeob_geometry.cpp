// What a geob computes from its arrays: smooth normals, tangents with the vertex split where a
// texture mirrors, and the adjacency list of its triangles.
#include "models/dgeob.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "models/dgeode.h"

#include <cmath>
#include <cstring>

namespace tarvik {

namespace {

const float minLength = 0.00001f; // below this a vector has no direction: (0, 1, 0) stands in

template <class T> T* AllocArray(int entries, int perEntry)
{
    return static_cast<T*>(qcalloc(sizeof(T) * size_t(entries > 0 ? entries : 0) * size_t(perEntry)));
}

template <class T> void FreeArray(T*& p)
{
    if (p) qfree(p);
    p = nullptr;
}

DVector3 Vec(const float* a, int i) { return DVector3(a[i * 3], a[i * 3 + 1], a[i * 3 + 2]); }

// Buffers never lag behind the arrays: they are made anew after a change.
void RefreshBuffers(DGeob* geob)
{
    if (!(geob->flags & DGEOB_VBO)) return;
    geob->flags &= ~uint32_t(DGEOB_VBO | DGEOB_VBO_ADJACENCY);
    geob->DisableVBO();
    geob->EnableVBO();
}

} // namespace

// Every triangle of the index list counts, indices / 3 of them, as the tangent step counts them:
// a geob of several bursts needs a normal on every vertex, not only on those of its first burst.
// Each face adds its unit normal, so that a vertex's normal doesn't lean towards large faces.
void DGeob::RethinkNormals()
{
    if (!normal) {
        if (vertices <= 0) return;
        normal = AllocArray<float>(vertices, 3);
        if (!normal) {
            QERROR("No memory for normals");
            return;
        }
    }
    std::memset(normal, 0, sizeof(float) * 3 * size_t(vertices));

    int triangles = (index && vertex) ? indices / 3 : 0;
    for (int t = 0; t < triangles; t++) {
        const unsigned short* tri = index + t * 3;
        if (tri[0] >= vertices || tri[1] >= vertices || tri[2] >= vertices) continue; // FinalizeGeob repairs these
        DPlane plane;
        plane.FromPoints(Vec(vertex, tri[0]), Vec(vertex, tri[1]), Vec(vertex, tri[2]));
        for (int k = 0; k < 3; k++) {
            float* n = normal + tri[k] * 3;
            n[0] += plane.normal.x, n[1] += plane.normal.y, n[2] += plane.normal.z;
        }
    }

    for (int v = 0; v < vertices; v++) {
        float* n = normal + v * 3;
        float len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        if (len < minLength)
            n[0] = 0, n[1] = 1, n[2] = 0;
        else
            n[0] /= len, n[1] /= len, n[2] /= len;
    }
    RefreshBuffers(this);
}

namespace {

// One per-vertex array of the geob grown to 'next' entries: the first 'n' copied, and each split
// vertex copied once more to its twin. False when memory runs out; the old array then stays.
bool GrowArray(float*& array, int perEntry, int n, int next, const int* twin, float** grown)
{
    *grown = nullptr;
    if (!array) return true;
    float* a = AllocArray<float>(next, perEntry);
    if (!a) return false;
    std::memcpy(a, array, sizeof(float) * size_t(perEntry) * size_t(n));
    for (int i = 0; i < n; i++)
        if (twin[i] != i) std::memcpy(a + size_t(twin[i]) * perEntry, a + size_t(i) * perEntry, sizeof(float) * perEntry);
    *grown = a;
    return true;
}

} // namespace

void CalculateTangentArray(int vertices, const float* vertex, const float* normal, DGeob* geob,
                           const float* texCoord, int triangles, unsigned short* index)
{
    if (!geob->normal) {
        QWARNING("CalculateTangentArray needs normals for geob; now normal=0");
        return;
    }
    if (!normal) normal = geob->normal;
    int n = vertices > 0 ? vertices : 0;
    if (!vertex || !index) triangles = 0;
    // After this check an entry at or above n can only be a corner moved to a twin, which the
    // rollback below relies on. FinalizeGeob has repaired the indices of a loaded geob already.
    for (int p = 0; p < triangles * 3; p++) {
        if (index[p] < n) continue;
        QWARNING("CalculateTangentArray; bad index %d (%d vertices) in geode %s", int(index[p]), n,
                 geob->geode ? geob->geode->GetName() : "");
        return;
    }

    // Room for twice the vertices at once: a vertex splits at most once, so the triangle loop
    // never reallocates.
    float* tan1 = AllocArray<float>(2 * n, 3);
    float* tan2 = AllocArray<float>(2 * n, 3);
    int* sign = AllocArray<int>(2 * n, 1); // +1 or -1 once a vertex is used, 0 before
    int* twin = AllocArray<int>(n, 1);      // the copy of a vertex for its mirrored corners, or itself
    auto freeWork = [&]() { FreeArray(tan1), FreeArray(tan2), FreeArray(sign), FreeArray(twin); };
    if (!tan1 || !tan2 || !sign || !twin) {
        QERROR("No memory for tangents");
        freeWork();
        return;
    }
    for (int i = 0; i < n; i++) twin[i] = i;
    int next = n;
    bool indexFull = false;

    for (int t = 0; t < triangles; t++) {
        unsigned short* tri = index + t * 3;
        int v0 = tri[0], v1 = tri[1], v2 = tri[2];
        DVector3 p0 = Vec(vertex, v0), p1 = Vec(vertex, v1), p2 = Vec(vertex, v2);
        float c[6] = {0, 0, 0, 0, 0, 0}; // u, v of the three corners
        if (texCoord) {
            for (int k = 0; k < 3; k++) c[k * 2] = texCoord[tri[k] * 2], c[k * 2 + 1] = texCoord[tri[k] * 2 + 1];
        }
        DVector3 e1 = p1 - p0, e2 = p2 - p0;
        float s1 = c[2] - c[0], t1 = c[3] - c[1];
        float s2 = c[4] - c[0], t2 = c[5] - c[1];
        float det = t2 * s1 - t1 * s2;
        if (std::fabs(det) < 0.000001f) det = det < 0 ? -0.000001f : 0.000001f; // a zero-area texture triangle
        DVector3 sdir((t2 * e1.x - t1 * e2.x) / det, (t2 * e1.y - t1 * e2.y) / det, (t2 * e1.z - t1 * e2.z) / det);
        DVector3 tdir((s1 * e2.x - s2 * e1.x) / det, (s1 * e2.y - s2 * e1.y) / det, (s1 * e2.z - s2 * e1.z) / det);
        DVector3 w = sdir.Cross(tdir);

        for (int k = 0; k < 3; k++) {
            int i = tri[k];
            int s = w.Dot(Vec(normal, i)) >= 0 ? 1 : -1;
            if (sign[i] == 0) {
                sign[i] = s;
            } else if (sign[i] != s) {
                // The texture mirrors here against the vertex's first use: this corner goes to
                // the vertex's twin, made on the first such corner.
                if (twin[i] == i) {
                    if (next > 0xFFFF) { // a 16-bit index can't name the twin: the corner stays
                        indexFull = true;
                        continue;
                    }
                    twin[i] = next;
                    sign[next] = s;
                    tri[k] = (unsigned short)next;
                    next++;
                } else {
                    sign[twin[i]] = s;
                    tri[k] = (unsigned short)twin[i];
                }
            }
        }
        for (int k = 0; k < 3; k++) {
            float* a = tan1 + tri[k] * 3;
            float* b = tan2 + tri[k] * 3;
            a[0] += sdir.x, a[1] += sdir.y, a[2] += sdir.z;
            b[0] += tdir.x, b[1] += tdir.y, b[2] += tdir.z;
        }
    }
    if (indexFull)
        QWARNING("CalculateTangentArray; geode %s has more than 65536 vertices with its split ones; some stay shared",
                 geob->geode ? geob->geode->GetName() : "");

    // Everything is allocated before anything changes: without memory the geob stays as it was.
    float* tangent = AllocArray<float>(next, 4);
    float** arrays[] = {&geob->vertex, &geob->tvertex[0], &geob->tvertex[1], &geob->normal, &geob->vcolor, &geob->ovrt};
    const int widths[] = {3, 2, 2, 3, 3, 3}; // 'ovrt' grows too: it is written with 'vertices'
    const int count = int(sizeof(widths) / sizeof(widths[0]));
    float* grown[count] = {};
    bool ok = tangent != nullptr;
    for (int a = 0; a < count && ok && next > n; a++) ok = GrowArray(*arrays[a], widths[a], n, next, twin, &grown[a]);
    if (!ok) {
        QERROR("No memory for tangents");
        FreeArray(tangent);
        for (float*& a : grown) FreeArray(a);
        // Back to the shared vertices: each twin names the vertex it was made from.
        for (int i = 0; i < n; i++)
            if (twin[i] != i) sign[twin[i]] = i;
        for (int p = 0; p < triangles * 3; p++)
            if (index[p] >= n) index[p] = (unsigned short)sign[index[p]];
        freeWork();
        return;
    }
    for (int a = 0; a < count; a++) {
        if (!grown[a]) continue;
        FreeArray(*arrays[a]);
        *arrays[a] = grown[a];
    }
    FreeArray(geob->tangent);
    geob->tangent = tangent;
    geob->vertices = next;

    const float* m = geob->normal; // the grown one: twins have their normal too
    for (int v = 0; v < next; v++) {
        DVector3 nv = Vec(m, v), t = Vec(tan1, v);
        DVector3 o = t - nv * nv.Dot(t); // Gram-Schmidt: the tangent in the vertex's plane
        float len = o.Length();
        if (len < minLength)
            o = DVector3(0, 1, 0);
        else
            o = DVector3(o.x / len, o.y / len, o.z / len);
        float* out = geob->tangent + v * 4;
        out[0] = o.x, out[1] = o.y, out[2] = o.z;
        out[3] = nv.Cross(t).Dot(Vec(tan2, v)) >= 0 ? 1.0f : -1.0f;
    }
    freeWork();
    RefreshBuffers(geob);
}

// The neighbour across an edge (a, b) of a triangle (a, b, c) is the first triangle in list order
// that has a and b among its vertices and not c; its vertex that is neither a nor b is the
// neighbour. If that first triangle has no such vertex (a degenerate one, with only a and b), there
// is no neighbour: 0xFFFF. A triangle with two equal vertices has no neighbours. Indices behind the
// last whole triangle have none either.
//
// Instead of searching the list for every edge, one pass records for each undirected edge the
// third vertices of the triangles that have it, in list order. Only two of them can ever be asked
// for: the first, and the first that differs from it. For the edge (a, b) of (a, b, c) the first
// triangle without c is the first whose third vertex isn't c: the first entry if that isn't c,
// otherwise the first entry that differs from it. So the cost grows linearly with the list.
namespace {

enum : int32_t {
    noThird = -1, // a degenerate triangle with the edge: only a and b
    unset = -2,
};

struct EdgeEntry {
    uint32_t key; // lower vertex << 16 | higher vertex; emptyKey for a free slot
    int32_t first, second;
};

const uint32_t emptyKey = 0xFFFFFFFFu; // no edge has it: the two vertices of an edge differ

class EdgeTable {
public:
    explicit EdgeTable(int edges)
    {
        size_t size = 16;
        shift = 28;
        while (size < size_t(edges) * 2) size *= 2, shift--; // at most half full
        entries = static_cast<EdgeEntry*>(qmalloc(sizeof(EdgeEntry) * size));
        if (entries) std::memset(entries, 0xFF, sizeof(EdgeEntry) * size);
    }
    ~EdgeTable()
    {
        if (entries) qfree(entries);
    }
    EdgeTable(const EdgeTable&) = delete;
    EdgeTable& operator=(const EdgeTable&) = delete;

    bool IsOK() const { return entries != nullptr; }

    void Add(int a, int b, int32_t third)
    {
        EdgeEntry* e = Slot(Key(a, b));
        if (e->key == emptyKey) {
            e->key = Key(a, b), e->first = third, e->second = unset;
        } else if (e->second == unset && third != e->first) {
            e->second = third;
        }
    }

    unsigned short Neighbour(int a, int b, int c)
    {
        const EdgeEntry* e = Slot(Key(a, b)); // always there: the asking triangle put it in
        int32_t third = e->first != c ? e->first : e->second;
        return third >= 0 ? (unsigned short)third : 0xFFFF;
    }

private:
    static uint32_t Key(int a, int b) { return a < b ? uint32_t(a) << 16 | uint32_t(b) : uint32_t(b) << 16 | uint32_t(a); }

    EdgeEntry* Slot(uint32_t key)
    {
        // The top bits of the product: they depend on every bit of the key.
        uint32_t mask = (uint32_t(1) << (32 - shift)) - 1;
        for (uint32_t h = (key * 0x9E3779B1u) >> shift;; h++) {
            EdgeEntry* e = entries + (h & mask);
            if (e->key == key || e->key == emptyKey) return e;
        }
    }

    EdgeEntry* entries; // owned; 1 << (32 - shift) of them
    int shift;
};

} // namespace

unsigned short* DGeob::BuildAdjacency(const unsigned short* index, int count)
{
    if (count < 0 || !index) count = 0;
    unsigned short* out = static_cast<unsigned short*>(qcalloc(sizeof(unsigned short) * 3 * size_t(count)));
    if (!out) {
        QERROR("DGeob:BuildAdjacency(); no memory for %d indices", count);
        return nullptr;
    }
    if (count == 0) return out;
    std::memcpy(out, index, sizeof(unsigned short) * size_t(count));
    unsigned short* pairs = out + count;

    int triangles = count / 3;
    EdgeTable table(triangles * 3);
    if (!table.IsOK()) {
        QERROR("DGeob:BuildAdjacency(); no memory for %d indices", count);
        qfree(out);
        return nullptr;
    }
    for (int t = 0; t < triangles; t++) {
        int a = index[t * 3], b = index[t * 3 + 1], c = index[t * 3 + 2];
        if (a != b && b != c && a != c) {
            table.Add(a, b, c), table.Add(b, c, a), table.Add(c, a, b);
        } else if (a != b || b != c) {
            table.Add(a, a != b ? b : c, noThird); // two vertices: one edge, no third
        }
    }

    for (int i = 0; i < count; i++) {
        int a = index[i];
        pairs[i * 2] = (unsigned short)a;
        pairs[i * 2 + 1] = 0xFFFF;
        int t = i / 3;
        if (t >= triangles) continue;
        int k = i % 3;
        int b = index[t * 3 + (k + 1) % 3], c = index[t * 3 + (k + 2) % 3];
        if (a == b || b == c || a == c) continue;
        pairs[i * 2 + 1] = table.Neighbour(a, b, c);
    }
    return out;
}

} // namespace tarvik
