#include "telemetry/analyse_signaltypes.h"

#include "foundation/qinfo.h"
#include "foundation/qmessage.h"

#include <cstdio>

namespace tarvik {

PSignalTypeDefs* signalTypeDefs = nullptr;

bool PSignalTypeDefs::Load(const char* fileName)
{
    // Looked for in the current directory only, and silently: the conversion needs no entry at all.
    QInfo info(fileName, QInfo::QIF_SILENT);
    count = 0;
    if (!info.IsRead()) return false;

    QInfoIterator it(&info, "signals");
    qstring path;
    while (it.GetNext(path, false)) {
        if (count >= MAX_TYPES) {
            QWARNING("PSignalTypeDefs:Load(%s); maximum reached (%d) - skipping rest", fileName, int(MAX_TYPES));
            break;
        }
        PSignalTypeDef& def = defs[count];
        def = PSignalTypeDef();
        def.id = path.GetLength() > 8 ? path.cstr() + 8 : ""; // without "signals."

        // Key paths are built in 256 characters, as the table's files have always been read.
        char key[256];
        auto keyPath = [&](const char* name) {
            std::snprintf(key, sizeof key, "%s.%s", path.cstr(), name);
            return key;
        };
        info.GetString(keyPath("name"), def.name, path.cstr());
        info.GetString(keyPath("unit"), def.unit, "-");
        def.min = info.GetFloat(keyPath("min"), 0.0f);
        def.max = info.GetFloat(keyPath("max"), 1.0f);
        QINFO("%s: %f-%f\n", key, double(def.min), double(def.max));
        def.factor = info.GetFloat(keyPath("factor"), 1.0f);
        def.offset = info.GetFloat(keyPath("offset"), 0.0f);
        def.flags = 0;
        if (info.GetBool(keyPath("live"), false)) def.flags |= PSignalTypeDef::PSTF_LIVE;
        if (info.GetBool(keyPath("selectable"), true)) def.flags |= PSignalTypeDef::PSTF_SELECTABLE;
        info.GetFloats(keyPath("color"), 3, def.color, nullptr);
        def.decimals = info.GetInt(keyPath("decimals"), 2);
        count++;
    }
    return true;
}

int PSignalTypeDefs::Find(const char* name) const
{
    for (int i = 0; i < count; i++)
        if (defs[i].id == name) return i;
    return -1;
}

} // namespace tarvik
