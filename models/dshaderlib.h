// DShader and DShaderLibrary: the shaders that materials and model data name.
//
// The model code asks a shader only for its name and for what its geometry needs (the flags
// below); materials find their shader in the library by name. The library owns its shaders, keeps
// them in the order they were added and holds at most DSHADERLIB_MAX of them. It reads no files:
// a program or a test fills it with Add.
#pragma once

#include "foundation/qstring.h"

#include <cstdint>

namespace tarvik {

enum DShaderFlags : uint32_t {
    DSHADER_TANGENTS = 0x200,  // the geometry needs per-vertex tangents
    DSHADER_ADJACENCY = 0x400, // the index buffer is to hold the adjacency list
};

enum { DSHADERLIB_MAX = 10000 };

class DShader {
public:
    DShader(const char* shaderName, uint32_t shaderFlags) : name(shaderName), flags(shaderFlags) {}

    qstring name;   // the key of DShaderLibrary::Find
    uint32_t flags; // DShaderFlags
};

class DShaderLibrary {
public:
    explicit DShaderLibrary(const char* folderPrefix = "");
    ~DShaderLibrary(); // deletes every shader
    DShaderLibrary(const DShaderLibrary&) = delete;
    DShaderLibrary& operator=(const DShaderLibrary&) = delete;

    // The first shader whose name is 'text', byte for byte; null if none.
    DShader* Find(const char* text) const;
    // Adds a shader at the end and gives it; null, with a warning, when the library is full.
    // A name that is already there is added all the same and is never found.
    DShader* Add(const char* name, uint32_t flags);

    int GetCount() const { return count; }
    DShader* GetShader(int n) const { return shaders[n]; } // unchecked

    qstring prefix;          // folder put in front of names in the skin lookup of materials
    DShader* defaultShader;  // borrowed, one of the library's own or null: the last resort

private:
    DShader** shaders; // owned, with each shader; qcalloc, grown by doubling up to DSHADERLIB_MAX
    int count;
    int capacity;
};

} // namespace tarvik
