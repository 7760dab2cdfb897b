// DGeob's OpenGL buffers: every array of the geob in a GL_STATIC_DRAW buffer of its own. Painting
// draws from the client arrays all the same; the buffers are for whoever draws from them.
#include "toolkit/glext.h" // first: it renames the OpenGL names

#include "models/dgeob.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "models/dgeode.h"
#include "models/dmaterial.h"
#include "models/dshaderlib.h"
#include "render/dglobal.h"

namespace tarvik {

namespace {

enum { D3_SETTING_CENTERED_VBO = 0x100000 }; // vertices relative to the box centre

// Takes a name if none is held, binds it to 'target' and uploads. False when there is no name.
bool Upload(uint32_t& buffer, GLenum target, const void* data, size_t bytes)
{
    if (!gll::glGenBuffersARB || !gll::glBindBufferARB || !gll::glBufferDataARB) return false;
    if (!buffer) {
        GLuint name = 0;
        gll::glGenBuffersARB(1, &name);
        buffer = name;
    }
    if (!buffer) return false;
    gll::glBindBufferARB(target, buffer);
    gll::glBufferDataARB(target, GLsizeiptrARB(bytes), data, GL_STATIC_DRAW_ARB);
    return true;
}

bool WantsAdjacency(const DGeob* geob)
{
    const DGeode* geode = geob->geode;
    if (!geode || geob->materialRef < 0 || geob->materialRef >= geode->materialCount ||
        geob->materialRef >= DGEODE_MAX_MATERIALS)
        return false;
    const DMaterial* material = geode->materials[geob->materialRef];
    return material && material->shader && (material->shader->flags & DSHADER_ADJACENCY);
}

} // namespace

void DGeob::EnableVBO()
{
    if (flags & DGEOB_VBO) return;
    flags |= DGEOB_VBO;

    size_t n = size_t(vertices > 0 ? vertices : 0);
    bool ok = true;
    const DGlobal* global = d3PeekDGlobal();
    if (vertex) {
        if (global && global->settings && (*global->settings & D3_SETTING_CENTERED_VBO)) {
            float box[6];
            GetBox(box);
            float* centred = static_cast<float*>(qmalloc(sizeof(float) * 3 * n));
            ok = centred != nullptr;
            if (ok) {
                for (size_t v = 0; v < n; v++)
                    for (int k = 0; k < 3; k++) centred[v * 3 + k] = vertex[v * 3 + k] - (box[k] + box[3 + k]) * 0.5f;
                ok = Upload(vertexBuffer, GL_ARRAY_BUFFER_ARB, centred, sizeof(float) * 3 * n);
                qfree(centred);
            }
        } else {
            ok = Upload(vertexBuffer, GL_ARRAY_BUFFER_ARB, vertex, sizeof(float) * 3 * n);
        }
    }
    if (ok && normal) ok = Upload(normalBuffer, GL_ARRAY_BUFFER_ARB, normal, sizeof(float) * 3 * n);
    for (int c = 0; c < DGEOB_MAX_CHANNELS && ok; c++)
        if (tvertex[c]) ok = Upload(tvertexBuffer[c], GL_ARRAY_BUFFER_ARB, tvertex[c], sizeof(float) * 2 * n);
    if (ok && vcolor) ok = Upload(colorBuffer, GL_ARRAY_BUFFER_ARB, vcolor, sizeof(float) * 3 * n);
    if (ok && tangent) ok = Upload(tangentBuffer, GL_ARRAY_BUFFER_ARB, tangent, sizeof(float) * 4 * n);

    if (ok && index) {
        size_t count = size_t(indices > 0 ? indices : 0);
        if (WantsAdjacency(this)) {
            unsigned short* adjacency = BuildAdjacency(index, int(count));
            ok = adjacency != nullptr;
            if (ok) {
                ok = Upload(indexBuffer, GL_ELEMENT_ARRAY_BUFFER_ARB, adjacency, sizeof(unsigned short) * 3 * count);
                qfree(adjacency);
            }
            flags |= DGEOB_VBO_ADJACENCY;
        } else {
            ok = Upload(indexBuffer, GL_ELEMENT_ARRAY_BUFFER_ARB, index, sizeof(unsigned short) * count);
            flags &= ~uint32_t(DGEOB_VBO_ADJACENCY);
        }
    }
    if (gll::glBindBufferARB) {
        gll::glBindBufferARB(GL_ARRAY_BUFFER_ARB, 0);
        gll::glBindBufferARB(GL_ELEMENT_ARRAY_BUFFER_ARB, 0);
    }
    if (!ok) {
        QWARNING("DGeob:EnableVBO(); can't generate VBO buffers (%s)", geode ? geode->GetName() : "");
        flags &= ~uint32_t(DGEOB_VBO | DGEOB_VBO_ADJACENCY);
        DisableVBO();
    }
}

void DGeob::DisableVBO()
{
    uint32_t* names[] = {&vertexBuffer, &indexBuffer, &normalBuffer, &colorBuffer, &tangentBuffer,
                         &tvertexBuffer[0], &tvertexBuffer[1]};
    for (uint32_t* name : names) {
        if (!*name) continue;
        GLuint buffer = *name;
        if (gll::glDeleteBuffersARB) gll::glDeleteBuffersARB(1, &buffer);
        *name = 0;
    }
}

} // namespace tarvik
