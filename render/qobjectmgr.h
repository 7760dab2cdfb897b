// QObjectManager: the base of the name-keyed caches of expensive render objects (textures, models,
// GPU programs). Parallel tables of names, skin numbers, objects and reference counts; making and
// destroying the objects themselves is left to the derived caches.
//
// The base class never frees an object: at its end (Destroy) it only names the ones still there,
// so that a leak shows in the log instead of as a crash on a dangling pointer. Get and Release are
// the cache's own road: a key of name and skin, MakeObject on a miss (with the name through
// ResolveName first), a count per entry, and DestroyObject when the count goes back to 0.
#pragma once

#include "foundation/qstring.h"

#include <cstdint>

namespace tarvik {

class QArchive;
class QFile;

class QObjectManager {
public:
    explicit QObjectManager(int maxObjs);
    virtual ~QObjectManager(); // runs Destroy
    QObjectManager(const QObjectManager&) = delete;
    QObjectManager& operator=(const QObjectManager&) = delete;

    virtual void ResolveName(qstring& name);          // base: leaves the name alone
    virtual void* MakeObject(const char* name);        // base: the marker 0xDEADBEEF, not null
    virtual void DestroyObject(void* object);          // base: nothing
    virtual void DbgPrint(const char* caption);

    // Reports the entries whose object is still there, frees the names and the tables. Once.
    void Destroy();

    // The object of (name, skin) with one more reference, made on a miss. Null when the object
    // can't be made (nothing is entered then) or the table is full (the object is destroyed).
    void* Get(const char* name, int skin = 0);
    // One reference less; at 0 the object is destroyed and the entry freed. False for an object
    // this cache doesn't hold.
    bool Release(void* object);
    int Find(const char* name, int skin) const; // index of the entry, or -1

    int GetMaxObjects() const { return maxObjects; }
    int GetNumObjects() const { return numObjects; }
    const char* GetName(int n) const { return names[n] ? names[n] : ""; } // unchecked
    int GetSkin(int n) const { return skins[n]; }
    void* GetObject(int n) const { return objects[n]; }
    int GetRefCount(int n) const { return refCounts[n]; }

protected:
    // One line per entry with a count above 0, through qmsginfo: 'format' takes the index, the
    // object, the name and the count. Returns the number of such entries.
    int PrintEntries(const char* format) const;

    char** names;       // owned, maxObjects slots, each owned (qstrdup)
    int32_t* skins;     // owned; -1 after Destroy
    void** objects;     // owned table; the objects belong to the derived cache
    int32_t* refCounts; // owned
    int32_t maxObjects;
    int32_t numObjects; // entries in use: always the first ones
    uint32_t word;      // 0
};

// Textures by file name: a DBitMapTexture from d3LoadTextureMap, never compressed.
class DTextureManager : public QObjectManager {
public:
    DTextureManager() : QObjectManager(5000) {}
    void* MakeObject(const char* name) override;
    void DestroyObject(void* object) override; // Detach, and delete if that says so
    void DbgPrint(const char* caption) override;
};

// GPU programs of the shading-language build; this build makes none.
class DGPUProgramManager : public QObjectManager {
public:
    DGPUProgramManager() : QObjectManager(1000), word0(0), word1(0) {}
    ~DGPUProgramManager() override; // "DGPUProgramManager dtor\n" first
    void* MakeObject(const char* name) override; // an error, null
    void DestroyObject(void* object) override;   // deletes a QObject
    void DbgPrint(const char* caption) override;

protected:
    uint32_t word0, word1; // not read here
};

// What the model library lends the geode cache, which stands below it and can't name a DGeode:
// Import makes a geode on 'name', reads it from 'file' (which stays the caller's) and gives it,
// or deletes it and gives null; Delete deletes one.
struct DGeodeHooks {
    void* (*Import)(const char* name, QFile* file);
    void (*Delete)(void* geode);
};
extern const DGeodeHooks* d3GeodeHooks; // null until the model library sets it

// Models by .dof file name, from the disk or from 'archive'.
class DGeodeManager : public QObjectManager {
public:
    explicit DGeodeManager(int maxObjs) : QObjectManager(maxObjs), archive(nullptr) {}
    void* MakeObject(const char* name) override;
    void DestroyObject(void* object) override;
    void DbgPrint(const char* caption) override;

    void SetArchive(QArchive* a, const char* folderPrefix);
    QArchive* GetArchive() const { return archive; }
    const qstring& GetPrefix() const { return prefix; }

private:
    QArchive* archive; // borrowed; null: the disk only
    qstring prefix;    // the archive's folder, put before names asked of it
};

} // namespace tarvik
