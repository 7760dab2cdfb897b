// QInfo: the tree configuration file of the whole tree.
//
//   ; a comment
//   signals
//   {
//     speed
//     {
//       unit=km/h
//     }
//     fast~signals.speed     (takes over the subtree signals.speed)
//   }
//
// The file is parsed whole at construction into a tree of nodes, asked by dotted path
// ("signals.speed.unit"). Assigned keys are found through a hash of their full paths, the first
// assignment winning; everything else by a walk of the tree, where a group's reference (~) is the
// second place to search, and a reference's own reference the next, at most MAX_LEVEL steps. Each
// step of the walk is a hash probe by parent and name too, and both tables grow with the tree: a
// look-up costs the same in a file of ten keys or of a million, whatever its shape. Integer and bool
// values run through Eval. The tree can be changed with SetString and written back whole or not at
// all (a failed write leaves the old file), keeping comments and order; a file that changed on disk
// is not overwritten without asking. The tree is freed by an iterative walk: depth costs no recursion.
#pragma once

#include "foundation/qobject.h"
#include "foundation/qstring.h"

#include <cstdint>
#include <cstdio>

namespace tarvik {

class QFile;
class QInfoIndex;

struct QInfoNode {
    enum Type { COMMENT = 0, KEY = 1, GROUP = 2 };
    enum Flags { QINF_READ = 1, QINF_HIDDEN = 2, QINF_HASHED = 4 };

    uint32_t type = KEY;
    uint32_t flags = 0;
    char* value = nullptr; // owned (qstrdup), or null
    qstring name;          // ";" for a comment
    QInfoNode* next = nullptr;
    QInfoNode* child = nullptr;
    QInfoNode* ref = nullptr; // the subtree taken over with '~', borrowed
    QInfoNode* parent = nullptr;
    QInfoNode* hashNext = nullptr;  // next in the chain of full paths (assigned keys only)
    QInfoNode* lastChild = nullptr; // the end of the children, for appending in constant time
    QInfoNode* childNext = nullptr; // next in the chain of parents and names
    uint32_t pathKey = 0;           // hash of the full path, once in the table of paths
    uint32_t childKey = 0;          // hash of parent and name, once in the table of children
};

class QInfo : public QObject {
public:
    enum { MAX_LEVEL = 10, MAX_PATH = 1024 };
    enum Flags {
        QIF_MODIFIED = 1,       // changed; the destructor writes the file
        QIF_READ = 2,           // the file was found when it was read
        QIF_SILENT = 4,         // a missing file is not reported
        QIF_DEBUG_FALLBACK = 8, // report keys found only in the fallback
        QIF_STOP_AT_BRACE = 16, // parsing ends at the first '}'
        QIF_REQUIRED = 32,      // a key found nowhere is warned about
        QIF_CREATE = 64,        // don't read: the file is to be created; cleared by the first write
    };

    QInfo(const char* fileName, int flags);
    // Reads the tree from 'size' bytes at 'text' (not kept) rather than from a file; 'fileName' names
    // it in reports and is where Write(nullptr, ...) goes.
    QInfo(const char* fileName, const void* text, int size, int flags);
    ~QInfo() override;
    QInfo(const QInfo&) = delete;
    QInfo& operator=(const QInfo&) = delete;
    const char* ClassName() const override { return "QInfo"; }

    bool IsRead() const { return (flags & QIF_READ) != 0; }
    int GetFlags() const { return int(flags); }
    const char* GetFileName() const { return fileName; }
    void SetFallback(QInfo* info); // owned from now on

    bool GetString(const char* path, char* out, const char* def); // 'out' has room for MAX_PATH chars
    bool GetString(const char* path, qstring& out, const char* def);
    int GetInt(const char* path, int def);
    float GetFloat(const char* path, float def);
    bool GetBool(const char* path, bool def);
    bool GetFloats(const char* path, int n, float* out, const float* def);
    QInfoNode* FindNode(const char* path); // null or "" gives the root
    QInfoNode* GetRoot() const { return root; }

    bool SetString(const char* path, const char* value);
    bool Write(const char* fileName, bool ask); // null: the file of this QInfo
    void WriteNode(FILE* out, QInfoNode* node, int level);

    // The full path of a node: names below the root joined by points, at most the 10 lowest.
    static void GetFullPath(const QInfoNode* node, char* out, int size);

private:
    void Read();
    void Parse(QFile& file);
    void FreeTree();
    void AddToHash(QInfoNode* node);
    void AppendChild(QInfoNode* group, QInfoNode* node);
    QInfoNode* FirstChild(QInfoNode* group, const char* name) const; // by name, comments left out
    QInfoNode* FindChild(QInfoNode* group, const char* name) const;  // hidden left out; then in references
    QInfoNode* WalkTo(const char* path); // the lookup walk, with references
    bool Lookup(const char* path, char* out, const char* def);

    char* fileName; // owned
    QInfoNode* root; // owned, with the whole tree
    uint32_t flags;
    QInfo* fallback; // owned, or null
    int line;
    QInfoIndex* paths;    // owned: assigned keys by full path, the first assignment of each
    QInfoIndex* children; // owned: every node but comments by parent and name, the first of each
    int64_t fileTime; // last-write time at the last read or write; 0 if unknown
};

class QInfoIterator {
public:
    QInfoIterator(QInfo* info, const char* path);

    // The next node that isn't a comment: its full path, and its bare name if 'name' isn't null.
    bool GetNext(qstring& path, bool recursive, qstring* name = nullptr);
    bool GetNextAny(bool recursive); // one step of any kind; false at the end
    QInfoNode* GetCurrent() const { return current; }

private:
    QInfo* info; // borrowed
    QInfoNode* current;
    QInfoNode* stack[QInfo::MAX_LEVEL];
    int depth;
};

} // namespace tarvik
