// What the model library lends the geode cache of DGlobal, which stands below it: making a geode
// from a .dof file and deleting one.
#include "models/dgeode.h"

#include "render/qobjectmgr.h"

namespace tarvik {

namespace {

// A geode on the name as it was asked for, or null, with nothing left behind, if the file isn't a
// model that stands.
void* ImportGeode(const char* name, QFile* file)
{
    DGeode* geode = new DGeode(name);
    if (geode->ImportDOF(file)) return geode;
    delete geode;
    return nullptr;
}

void DeleteGeode(void* geode) { delete static_cast<DGeode*>(geode); }

const DGeodeHooks geodeHooks = {ImportGeode, DeleteGeode};

} // namespace

void d3InstallGeodeHooks() { d3GeodeHooks = &geodeHooks; }

} // namespace tarvik
