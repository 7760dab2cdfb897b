// Geobs made in code for the model tests: arrays from the tree's allocator, as a load makes them.
#pragma once

#include "foundation/qhelpers.h"
#include "models/dgeob.h"

#include <cstring>
#include <vector>

namespace tarvik {
namespace test {

template <class T> T* CopyArray(const std::vector<T>& values)
{
    if (values.empty()) return nullptr;
    T* p = static_cast<T*>(qcalloc(sizeof(T) * values.size()));
    std::memcpy(p, values.data(), sizeof(T) * values.size());
    return p;
}

// A geob of 'positions' (x, y, z a vertex) and 'index'; 'uv' (u, v a vertex) may be empty.
inline DGeob* MakeGeob(DGeode* geode, const std::vector<float>& positions, const std::vector<unsigned short>& index,
                       const std::vector<float>& uv = {})
{
    DGeob* g = new DGeob(geode);
    g->vertices = int(positions.size() / 3);
    g->vertex = CopyArray(positions);
    g->indices = int(index.size());
    g->index = CopyArray(index);
    g->tvertex[0] = CopyArray(uv);
    return g;
}

} // namespace test
} // namespace tarvik
