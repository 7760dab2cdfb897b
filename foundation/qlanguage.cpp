#include "foundation/qlanguage.h"

#include "foundation/qapphooks.h"

#include <cstdio>

namespace tarvik {

bool QLanguage::Add(const char* key, const char* text)
{
    if (count >= MAX_ENTRIES) return false;
    keys[count] = key;
    texts[count] = text;
    count++;
    return true;
}

const char* QLanguage::Find(const char* key) const
{
    int hops = 0;
    for (const QLanguage* l = this; l && hops < 64; l = l->further, hops++) // a loop of tables ends too
        for (int i = 0; i < l->count; i++)
            if (l->keys[i] == key) return l->texts[i].cstr();
    return nullptr;
}

const char* QLanguage::Get(const char* key, const char* def) const
{
    if (const char* text = Find(key)) return text;
    // The further table is asked without 'def', so past the end of the chain its "?key?" stands.
    if (def && !further) return def;
    static char unknown[1024];
    std::snprintf(unknown, sizeof unknown, "?%s?", key ? key : "");
    return unknown;
}

QLanguage* QGetLanguage()
{
    return qappHooks && qappHooks->GetLanguage ? qappHooks->GetLanguage() : nullptr;
}

} // namespace tarvik
