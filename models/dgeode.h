// DGeode: a 3-D model in memory: a table of materials and a table of geobs.
//
// The geode owns both: every non-null slot below the count is deleted by Destroy, which runs at
// destruction and before a new load. The tables are fixed arrays inside the object (200 geobs,
// 6000 materials); a slot not in use is null.
#pragma once

#include "foundation/qstring.h"
#include "models/dobject.h"

#include <cstdint>

namespace tarvik {

class DGeob;
class DMaterial;
class QFile;

enum {
    DGEODE_MAX_GEOBS = 200,
    DGEODE_MAX_MATERIALS = 6000,
};

enum DGeodeFlags : uint32_t {
    DGEODE_DEBUG_COLORS = 1,      // geobs paint every burst in a colour of its own
    DGEODE_NO_MATERIAL_STATE = 2, // geobs leave all material state alone when painting
    DGEODE_MERGE_GEOBS = 8,       // after a load, geobs of one material are merged
};

class DGeode : public DObject {
public:
    explicit DGeode(const char* geodeName = nullptr);
    ~DGeode() override; // Destroy
    DGeode(const DGeode&) = delete;
    DGeode& operator=(const DGeode&) = delete;

    // Deletes every geob and material and nulls their slots. The counts stay as they were: the
    // next load overwrites them.
    void Destroy();

    const char* GetName() const { return name.cstr(); } // "" for none
    DMaterial* GetMaterial(int n) const { return materials[n]; } // unchecked

    // Where an image of this model is: mapDir/name if that exists, else images/name if that
    // exists, else the name as it stands.
    void FindMapFile(const char* fileName, qstring& out) const;

    // Joins geob j into geob i: vertices, indices, the per-vertex arrays and the bursts; j is
    // deleted and the later geobs move down one place. False, with nothing changed, when the two
    // can't be joined (see the function).
    bool MergeGeobs(int i, int j);

    // Tangents for every geob that has none, if a material's shader asks for them.
    void EnsureTangents();

    // What a load does once all chunks are read: merges geobs of one material if
    // DGEODE_MERGE_GEOBS is set, makes normals where they are missing, then EnsureTangents.
    void FinishLoad();

    // dgeode_dof.cpp: the .dof format. ImportDOF ends with FinishLoad.
    bool ImportDOF(QFile* file);
    bool ExportDOF(QFile* file);

    qstring name;   // the file name as asked for, for a loaded file
    qstring mapDir; // folder searched first for images; empty for none
    DMaterial* materials[DGEODE_MAX_MATERIALS]; // owned; null where not in use
    int32_t materialCount;
    uint32_t flags; // DGeodeFlags
    DGeob* geobs[DGEODE_MAX_GEOBS]; // owned; null where not in use
    int32_t geobCount;
};

// Lets the geode cache of DGlobal make geodes: a .dof file read by DGeode::ImportDOF. Once, before
// the first model is asked of the cache.
void d3InstallGeodeHooks();

} // namespace tarvik
