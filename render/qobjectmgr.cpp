// QObjectManager and the caches of textures, GPU programs and models.
#include "render/qobjectmgr.h"

#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qobject.h"
#include "images/qarchive.h"
#include "images/qbitmap.h"
#include "render/dtexture.h"

#include <cstdint>
#include <cstring>

namespace tarvik {

QObjectManager::QObjectManager(int maxObjs)
    : names(nullptr), skins(nullptr), objects(nullptr), refCounts(nullptr), maxObjects(0), numObjects(0), word(0)
{
    const size_t n = maxObjs > 0 ? size_t(maxObjs) : 0;
    skins = static_cast<int32_t*>(qcalloc(sizeof(int32_t) * n));
    names = static_cast<char**>(qcalloc(sizeof(char*) * n));
    objects = static_cast<void**>(qcalloc(sizeof(void*) * n));
    refCounts = static_cast<int32_t*>(qcalloc(sizeof(int32_t) * n));
    if (n && (!skins || !names || !objects || !refCounts))
        QERROR("QObjectManager(); out of memory for %d entries", maxObjs);
    else maxObjects = int32_t(n);
}

QObjectManager::~QObjectManager()
{
    Destroy();
}

void QObjectManager::ResolveName(qstring&) {}

void* QObjectManager::MakeObject(const char*)
{
    // The base makes nothing; the marker shows a derived class that forgot to.
    return reinterpret_cast<void*>(uintptr_t(0xDEADBEEF));
}

void QObjectManager::DestroyObject(void*) {}

int QObjectManager::PrintEntries(const char* format) const
{
    int count = 0;
    for (int i = 0; i < numObjects; i++) {
        if (refCounts[i] <= 0) continue;
        qmsginfo(__FILE__, __PRETTY_FUNCTION__, __LINE__, format, i, objects[i], GetName(i), refCounts[i]);
        count++;
    }
    return count;
}

void QObjectManager::DbgPrint(const char* caption)
{
    QINFO("QObjectManager (%s); %d potential references\n", caption, numObjects);
    for (int i = 0; i < numObjects; i++) {
        if (refCounts[i] > 0)
            QINFO("  ref[%d]=%p: '%s' (skin=%d,refCount %d)\n", i, objects[i], GetName(i), skins[i], refCounts[i]);
    }
}

void QObjectManager::Destroy()
{
    if (!names && !skins && !objects && !refCounts) return; // ran already
    for (int i = 0; i < numObjects; i++) {
        if (objects && objects[i])
            QWARNING("QObjMgr: object '%s' still around with %d reference(s)", GetName(i), refCounts[i]);
    }
    for (int i = 0; i < numObjects; i++) {
        skins[i] = -1;
        qfree(names[i]);
        names[i] = nullptr;
    }
    numObjects = 0;
    qfree(skins);
    qfree(names);
    qfree(objects);
    qfree(refCounts);
    skins = nullptr;
    names = nullptr;
    objects = nullptr;
    refCounts = nullptr;
    maxObjects = 0;
}

int QObjectManager::Find(const char* name, int skin) const
{
    if (!name) return -1;
    for (int i = 0; i < numObjects; i++) {
        if (skins[i] == skin && std::strcmp(GetName(i), name) == 0) return i;
    }
    return -1;
}

void* QObjectManager::Get(const char* name, int skin)
{
    if (!name) name = "";
    int i = Find(name, skin);
    if (i >= 0) {
        refCounts[i]++;
        return objects[i];
    }
    qstring resolved(name);
    ResolveName(resolved);
    void* obj = MakeObject(resolved.cstr());
    if (!obj) return nullptr;
    if (numObjects >= maxObjects) {
        QWARNING("QObjMgr: no room for '%s' (max=%d)", name, maxObjects);
        DestroyObject(obj);
        return nullptr;
    }
    i = numObjects++;
    names[i] = qstrdup(name);
    skins[i] = skin;
    objects[i] = obj;
    refCounts[i] = 1;
    return obj;
}

bool QObjectManager::Release(void* object)
{
    int i = 0;
    while (i < numObjects && objects[i] != object) i++;
    if (i == numObjects) return false;
    if (--refCounts[i] > 0) return true;
    DestroyObject(object);
    qfree(names[i]);
    // Entries in use stay the first ones.
    const size_t rest = size_t(numObjects - i - 1);
    std::memmove(names + i, names + i + 1, sizeof(char*) * rest);
    std::memmove(skins + i, skins + i + 1, sizeof(int32_t) * rest);
    std::memmove(objects + i, objects + i + 1, sizeof(void*) * rest);
    std::memmove(refCounts + i, refCounts + i + 1, sizeof(int32_t) * rest);
    numObjects--;
    names[numObjects] = nullptr;
    skins[numObjects] = 0;
    objects[numObjects] = nullptr;
    refCounts[numObjects] = 0;
    return true;
}

// Textures

void* DTextureManager::MakeObject(const char* name)
{
    bool loaded = false;
    QBitMap* bm = d3LoadTextureMap(name, &loaded, false);
    if (!loaded) QWARNING("DTextureManager:MakeObject(%s) couldn't find image", name);
    DBitMapTexture* tex = new DBitMapTexture;
    tex->DisableCompression();
    tex->FromBitMap(bm);
    delete bm; // the pixels live in OpenGL now
    tex->SetName(name);
    return tex;
}

void DTextureManager::DestroyObject(void* object)
{
    DTexture* tex = static_cast<DTexture*>(object);
    if (!tex) return;
    // Without OpenGL a texture is never created and its count stays 0: only the cache holds it.
    if (tex->GetRefCount() == 0 && tex->GetID() == 0) delete tex;
    else if (tex->Detach()) delete tex;
}

void DTextureManager::DbgPrint(const char* caption)
{
    QINFO("DTextureManager (%s)\n", caption);
    int held = PrintEntries("  tex[%d]=%p: '%s' (refCount %d)\n");
    if (held > 0) QINFO("DTextureManager:DbgPrint(); %d textures NOT RELEASED\n", held);
    else QINFO("DTextureManager:DbgPrint(); all textures released\n");
}

// GPU programs

DGPUProgramManager::~DGPUProgramManager()
{
    QINFO("DGPUProgramManager dtor\n");
}

void* DGPUProgramManager::MakeObject(const char* name)
{
    QERROR("DGPUProgramManager:MakeObject(%s) called in non-GLSL version - will not work", name);
    return nullptr;
}

void DGPUProgramManager::DestroyObject(void* object)
{
    delete static_cast<QObject*>(object);
}

void DGPUProgramManager::DbgPrint(const char* caption)
{
    QINFO("DGPUProgramManager:DbgPrint(%s); %d potential gpu shaders", caption, numObjects);
    int held = PrintEntries("  gpuShader[%d]=%p: '%s' (refCount %d)\n");
    if (held > 0) QINFO("DGPUProgramManager:DbgPrint(); %d gpu shaders NOT RELEASED", held);
    else QINFO("DGPUProgramManager:DbgPrint(); all gpu shaders released");
}

// Models

const DGeodeHooks* d3GeodeHooks = nullptr;

void DGeodeManager::SetArchive(QArchive* a, const char* folderPrefix)
{
    archive = a;
    prefix = folderPrefix ? folderPrefix : "";
}

void* DGeodeManager::MakeObject(const char* name)
{
    if (!d3GeodeHooks || !d3GeodeHooks->Import) {
        QWARNING("DGeodeManager:MakeObject(%s); no model reader", name);
        return nullptr;
    }
    QFile* file = new QFile(name, QFile::READ);
    if (!file->IsOpen()) {
        delete file;
        file = archive ? archive->OpenFile(name) : nullptr;
        if (!file) return nullptr;
        qstring inArchive(prefix);
        inArchive += "/";
        inArchive += name;
        file->SetName(inArchive.cstr());
    }
    void* geode = d3GeodeHooks->Import(name, file);
    delete file;
    return geode;
}

void DGeodeManager::DestroyObject(void* object)
{
    if (object && d3GeodeHooks && d3GeodeHooks->Delete) d3GeodeHooks->Delete(object);
}

void DGeodeManager::DbgPrint(const char* caption)
{
    QINFO("DGeodeManager (%s); %d potential geodes\n", caption, numObjects);
    PrintEntries("  geode[%d]=%p: '%s' (refCount %d)\n");
}

} // namespace tarvik
