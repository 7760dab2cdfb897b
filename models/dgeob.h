// DGeob: one batch of geometry of a geode: one vertex list with its per-vertex arrays, one list of
// 16-bit indices (triangles or quads) and a burst table that says which stretch of the index list
// is drawn with which material.
//
// Every array comes from qcalloc, belongs to the geob and is freed with it; all per-vertex arrays
// have 'vertices' entries. The geob never owns its geode. A fresh geob is empty: all pointers
// null, all counts 0, the box zero.
//
// Where the code lives:
//   dgeob.cpp           construction and freeing, finalising, the box, burst look-ups, Ensure*
//   dgeob_geometry.cpp  RethinkNormals, CalculateTangentArray, BuildAdjacency
//   dgeob_vbo.cpp       the OpenGL buffers
#pragma once

#include "render/dmath.h"

#include <cstdint>

namespace tarvik {

class DGeode;
class DMaterial;

enum {
    DGEOB_MAX_BURSTS = 100,
    DGEOB_MAX_CHANNELS = 2,        // texture coordinate channels
    DGEOB_MAX_MERGED_VERTICES = 65000,
};

enum DGeobFlags : uint32_t {
    DGEOB_TRANSPARENT_PASS = 1, // this paint call draws the transparent bursts only
    DGEOB_VBO = 16,             // the arrays are in OpenGL buffers
    DGEOB_VBO_ADJACENCY = 32,   // the index buffer holds the adjacency list
};

class DGeob {
public:
    explicit DGeob(DGeode* owner);
    ~DGeob(); // Free
    DGeob(const DGeob&) = delete;
    DGeob& operator=(const DGeob&) = delete;

    // Frees every array and the buffers; counts and bursts back to 0. The geob is empty again.
    void Free();

    // After a geob is read or merged: repairs indices beyond the vertices to 0 (with a warning),
    // computes the box, centre and radius, and makes a zeroed texture channel 0 if there is none.
    void FinalizeGeob();
    // min x, y, z, max x, y, z of the vertices; six zeros without vertices.
    void GetBox(float out[6]) const;
    // The first burst that ends behind 'position' (in burst units: index position times
    // vertices per polygon); -1 if none.
    int FindBurst(int position) const;
    // The material a burst's material id selects; null if the geode has none there.
    DMaterial* GetBurstMaterial(int id) const;

    void EnsureNormals();  // RethinkNormals if there are none
    void EnsureTangents(); // normals first, then CalculateTangentArray, if there are no tangents

    // dgeob_geometry.cpp
    // Smooth normals: each vertex gets the normalised sum of the unit normals of its triangles.
    void RethinkNormals();
    // The adjacency list of 'count' triangle indices: the indices, then for each index the index
    // and the vertex across the edge that starts there (0xFFFF for none); 3 x count entries from
    // qcalloc that the caller frees. Null only when memory runs out.
    static unsigned short* BuildAdjacency(const unsigned short* index, int count);

    // dgeob_vbo.cpp
    void EnableVBO();  // uploads all arrays to buffers; sets DGEOB_VBO
    void DisableVBO(); // deletes the buffers held

    uint32_t flags;      // DGeobFlags
    uint32_t paintFlags; // carried from file to file, read by nothing else
    float* vertex;       // owned: vertices x (x, y, z)
    unsigned short* index; // owned: indices entries
    int32_t indices;
    float* normal;       // owned or null: vertices x (x, y, z), unit length
    float* tvertex[DGEOB_MAX_CHANNELS]; // owned or null: vertices x (u, v) per channel
    float* vcolor;       // owned or null: vertices x (r, g, b), 0.0 to 1.0
    float* tangent;      // owned or null: vertices x (x, y, z, handedness +1 or -1)
    uint32_t vertexBuffer, indexBuffer, normalBuffer, colorBuffer, tangentBuffer; // OpenGL names, 0 for none
    uint32_t tvertexBuffer[DGEOB_MAX_CHANNELS];
    int32_t vertices;
    // Bursts count in index positions times burstVperP: a triangle counts 9.
    int32_t burstStart[DGEOB_MAX_BURSTS];
    int32_t burstCount[DGEOB_MAX_BURSTS];
    int32_t burstMtlId[DGEOB_MAX_BURSTS]; // see GetBurstMaterial
    int32_t burstVperP[DGEOB_MAX_BURSTS]; // 3 triangles, 4 quads
    int32_t bursts;
    int32_t materialRef; // index into the geode's materials
    DBox aabb;
    float radius;        // half the box diagonal
    float center[3];
    DGeode* geode;       // borrowed: the owner
    float* ovrt;         // owned or null: a second vertices x (x, y, z), carried from file to file
};

// Per-vertex tangents of the geob's triangles, with their handedness in the fourth float. Where a
// texture is mirrored against a vertex's first use, the vertex is split: the mirrored corners get
// a copy (its twin) and the geob's per-vertex arrays grow, at most to twice their length. 'index'
// is changed where a corner moves to a twin. The geob needs normals; without them it warns and
// leaves everything as it is. 'texCoord' null counts as all coordinates 0.
void CalculateTangentArray(int vertices, const float* vertex, const float* normal, DGeob* geob,
                           const float* texCoord, int triangles, unsigned short* index);

} // namespace tarvik
