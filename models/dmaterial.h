// DMaterial as the geometry code sees it: a material that may hold submaterials and may name a
// shader. The geode owns its materials, a material its submaterials.
#pragma once

#include <cstdint>

namespace tarvik {

class DShader;

enum { DMATERIAL_MAX_SUBMATERIALS = 1000 };

class DMaterial {
public:
    DMaterial() : flags(0), submaterials{}, submaterialCount(0), shader(nullptr) {}
    ~DMaterial()
    {
        for (int i = 0; i < submaterialCount && i < DMATERIAL_MAX_SUBMATERIALS; i++) delete submaterials[i];
    }
    DMaterial(const DMaterial&) = delete;
    DMaterial& operator=(const DMaterial&) = delete;

    uint32_t flags;
    DMaterial* submaterials[DMATERIAL_MAX_SUBMATERIALS]; // owned; null where not in use
    int32_t submaterialCount;
    DShader* shader; // borrowed from the shader library; null if none
};

} // namespace tarvik
