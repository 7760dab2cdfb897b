// The shader library: a list of named shaders, searched in order.
#include "models/dshaderlib.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"

#include <cstring>

namespace tarvik {

DShaderLibrary::DShaderLibrary(const char* folderPrefix)
    : prefix(folderPrefix ? folderPrefix : ""), defaultShader(nullptr), shaders(nullptr), count(0),
      capacity(0)
{
}

DShaderLibrary::~DShaderLibrary()
{
    for (int i = 0; i < count; i++) delete shaders[i];
    if (shaders) qfree(shaders);
}

DShader* DShaderLibrary::Find(const char* text) const
{
    if (!text) return nullptr;
    for (int i = 0; i < count; i++)
        if (shaders[i]->name == text) return shaders[i];
    return nullptr;
}

DShader* DShaderLibrary::Add(const char* name, uint32_t flags)
{
    if (count == capacity) {
        if (capacity == DSHADERLIB_MAX) {
            QWARNING("DShaderLibrary:Add(%s); out of shaders (max=%d)", name ? name : "", int(DSHADERLIB_MAX));
            return nullptr;
        }
        int grown = capacity ? capacity * 2 : 64;
        if (grown > DSHADERLIB_MAX) grown = DSHADERLIB_MAX;
        DShader** table = static_cast<DShader**>(qcalloc(sizeof(DShader*) * size_t(grown)));
        if (!table) {
            QERROR("DShaderLibrary:Add(%s); no memory", name ? name : "");
            return nullptr;
        }
        if (count) std::memcpy(table, shaders, sizeof(DShader*) * size_t(count));
        if (shaders) qfree(shaders);
        shaders = table;
        capacity = grown;
    }
    DShader* shader = new DShader(name ? name : "", flags);
    shaders[count++] = shader;
    return shader;
}

} // namespace tarvik
