// Files and directories: existence, status, names, the current directory, and the virtual file
// system that also looks into archives.
#pragma once

#include "foundation/qobject.h"
#include "foundation/qstring.h"

#include <cstdint>

namespace tarvik {

class QFile;

struct QFileInfo {
    int32_t size;
    int32_t isDirectory; // 0 or 1
    int64_t modified;    // seconds since the epoch
    int64_t created;     // the status-change time
};

// An archive as the virtual file system sees it. The archive class stands above the foundation and
// implements this; the foundation never links against it.
class QVfsArchive {
public:
    virtual ~QVfsArchive() {}
    virtual const char* GetArchiveFileName() const = 0;
    virtual bool HasFile(const char* name) = 0;     // name without directory
    virtual QFile* OpenMember(const char* name) = 0; // a QFile in memory, or null
};

class QVirtualFileSystem {
public:
    enum { MAX_ARCHIVES = 100 };

    QVirtualFileSystem() : count(0) {}
    bool AddArchive(QVfsArchive* archive); // borrowed; false when full
    int GetCount() const { return count; }

    bool FileExists(const char* path);
    QFile* OpenFile(const char* path, int mode); // a new QFile, or null

private:
    QVfsArchive* FindArchive(const char* path, qstring& fileName); // the first that HasFile

    QVfsArchive* archives[MAX_ARCHIVES];
    int count;
};

bool QFileExists(const char* name, bool useArchives = false);
bool QFileInfoOf(const char* path, QFileInfo* info); // zeroes 'info' on failure
const char* QFileName(const char* path);             // behind the last '/' or '\'
const char* QFileExtension(const char* name);        // the last '.', or null
void QCurrentDirectory(qstring& out);
bool QSetCurrentDirectory(const char* path);
bool QSetCurrentDirectory(const qstring& path);
bool QMakeDirectory(const char* path); // true also if it existed already
bool QRemoveDirectory(const char* path);
bool QRemoveFile(const char* path);

// QPath: up to 20 directories to search for a file, in order.
class QPath : public QObject {
public:
    enum { MAX_DIRS = 20 };

    QPath() : count(0) {}
    ~QPath() override;
    const char* ClassName() const override { return "QPath"; }

    bool Add(const char* directory); // false when full
    void Clear();
    int GetCount() const { return count; }
    const char* GetDirectory(int n) const { return n >= 0 && n < count ? dirs[n] : ""; }

    const char* FindFile(const char* name); // static buffer; 'name' itself if not found
    bool FindFile(const char* name, qstring& path, qstring* directory);

private:
    char* dirs[MAX_DIRS]; // owned
    int count;
};

// QDirectory: the entries of one directory, "." and ".." included.
class QDirectory : public QObject {
public:
    explicit QDirectory(const char* path);
    ~QDirectory() override;
    const char* ClassName() const override { return "QDirectory"; }

    bool Open(const char* path);
    bool Read(char* name, QFileInfo* info = nullptr); // 'name' has room for 1024 characters

private:
    void Close();

    struct PlatformDir* handle; // owned
    char pending[1024];  // the entry found by Open, delivered by the first Read
    bool delivered;      // the pending entry has been delivered
    qstring directory;
};

} // namespace tarvik
