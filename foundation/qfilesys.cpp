#include "foundation/qfilesys.h"

#include "foundation/qapphooks.h"
#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "platform/platform.h"

#include <cstdio>
#include <cstring>

namespace tarvik {

bool QFileExists(const char* name, bool useArchives)
{
    if (!name || !name[0]) return false;
    if (useArchives && qappHooks && qappHooks->GetFileSystem) {
        if (QVirtualFileSystem* vfs = qappHooks->GetFileSystem()) return vfs->FileExists(name);
    }
    FILE* f = std::fopen(name, "rb");
    if (!f) return false;
    std::fclose(f);
    return true;
}

bool QFileInfoOf(const char* path, QFileInfo* info)
{
    PlatformFileStatus st;
    if (!PlatformStat(path, &st)) {
        std::memset(info, 0, sizeof *info);
        return false;
    }
    info->size = st.size > INT32_MAX ? INT32_MAX : int32_t(st.size);
    info->isDirectory = st.isDirectory ? 1 : 0;
    info->modified = st.modified;
    info->created = st.created;
    return true;
}

const char* QFileName(const char* path)
{
    if (!path) return nullptr;
    const char* name = path;
    for (const char* p = path; *p; p++)
        if (*p == '/' || *p == '\\') name = p + 1;
    return name;
}

const char* QFileExtension(const char* name)
{
    if (!name || !name[0]) return name;
    return std::strrchr(name, '.');
}

void QCurrentDirectory(qstring& out)
{
    char dir[1024];
    PlatformCurrentDirectory(dir, sizeof dir);
    out = dir;
}

bool QSetCurrentDirectory(const char* path)
{
    int error = 0;
    if (PlatformSetCurrentDirectory(path, &error)) return true;
    QWARNING("QSetCurrentDirectory(%s) failed; errno %d", path ? path : "(null)", error);
    return false;
}

bool QSetCurrentDirectory(const qstring& path) { return QSetCurrentDirectory(path.cstr()); }
bool QMakeDirectory(const char* path) { return PlatformMakeDirectory(path); }
bool QRemoveDirectory(const char* path) { return PlatformRemoveDirectory(path); }
bool QRemoveFile(const char* path) { return PlatformRemoveFile(path); }

bool QVirtualFileSystem::AddArchive(QVfsArchive* archive)
{
    if (!archive || count >= MAX_ARCHIVES) return false;
    archives[count++] = archive;
    return true;
}

// The directory of a path, upper-cased, without its last separator; 'fileName' gets the rest.
static void SplitPath(const char* path, qstring& directory, qstring& fileName)
{
    directory = path;
    fileName = QFileName(path);
    if (!directory.CutFile()) directory.Empty();
    directory.ToUpper();
}

// FileExists asks each archive of the path's directory whether it holds exactly this name.
QVfsArchive* QVirtualFileSystem::FindArchive(const char* path, qstring& fileName)
{
    qstring directory;
    SplitPath(path, directory, fileName);
    for (int i = 0; i < count; i++) {
        qstring archiveDir, archiveName;
        SplitPath(archives[i]->GetArchiveFileName(), archiveDir, archiveName);
        if (!(archiveDir == directory)) continue;
        if (archives[i]->HasFile(fileName.cstr())) return archives[i];
    }
    return nullptr;
}

bool QVirtualFileSystem::FileExists(const char* path)
{
    if (QFileExists(path, false)) return true;
    if (!path || !path[0]) return false;
    qstring fileName;
    return FindArchive(path, fileName) != nullptr;
}

// OpenFile asks each archive of the path's directory for the member itself: an archive finds it
// regardless of case, and one that holds the name but can't expand the member gives null, so the
// next archive gets its turn.
QFile* QVirtualFileSystem::OpenFile(const char* path, int mode)
{
    if (QFileExists(path, false)) return new QFile(path, mode);
    if (!path || !path[0]) return nullptr;
    qstring directory, fileName;
    SplitPath(path, directory, fileName);
    for (int i = 0; i < count; i++) {
        qstring archiveDir, archiveName;
        SplitPath(archives[i]->GetArchiveFileName(), archiveDir, archiveName);
        if (!(archiveDir == directory)) {
            QINFO("Directory does not match\n");
            continue;
        }
        if (QFile* member = archives[i]->OpenMember(fileName.cstr())) return member;
    }
    return nullptr;
}

QPath::~QPath()
{
    Clear();
}

bool QPath::Add(const char* directory)
{
    if (count >= MAX_DIRS) return false;
    dirs[count++] = qstrdup(directory ? directory : "");
    return true;
}

void QPath::Clear()
{
    for (int i = 0; i < count; i++) qfree(dirs[i]);
    count = 0;
}

bool QPath::FindFile(const char* name, qstring& path, qstring* directory)
{
    if (directory) directory->Empty();
    for (int i = 0; i < count; i++) {
        qstring candidate(dirs[i]);
        candidate += "/";
        candidate += name;
        if (QFileExists(candidate.cstr(), true)) {
            path = candidate;
            if (directory) *directory = dirs[i];
            return true;
        }
    }
    path = name;
    return false;
}

const char* QPath::FindFile(const char* name)
{
    static char found[1024];
    qstring path;
    FindFile(name, path, nullptr);
    std::snprintf(found, sizeof found, "%s", path.cstr());
    return found;
}

QDirectory::QDirectory(const char* path) : handle(nullptr), delivered(true)
{
    pending[0] = 0;
    SetName(path);
    Open(path);
}

QDirectory::~QDirectory()
{
    Close();
}

void QDirectory::Close()
{
    PlatformCloseDir(handle);
    handle = nullptr;
    delivered = true;
}

bool QDirectory::Open(const char* path)
{
    Close();
    directory = path;
    handle = PlatformOpenDir(path);
    if (!handle) return false;
    // The search starts by finding its first entry, as a wildcard search of "path/*" would.
    if (!PlatformReadDir(handle, pending, sizeof pending)) {
        Close();
        return false;
    }
    delivered = false;
    return true;
}

bool QDirectory::Read(char* name, QFileInfo* info)
{
    if (!handle) return false;
    if (!delivered) {
        delivered = true;
        std::snprintf(name, 1024, "%s", pending);
    } else if (!PlatformReadDir(handle, name, 1024)) {
        return false;
    }
    if (info) {
        qstring full(directory);
        full += "/";
        full += name;
        QFileInfoOf(full.cstr(), info);
    }
    return true;
}

} // namespace tarvik
