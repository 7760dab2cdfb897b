#include "foundation/qinfo.h"

#include "foundation/qask.h"
#include "foundation/qeval.h"
#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qoutput.h"
#include "platform/platform.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace tarvik {

// Chains of nodes by a 32-bit key, linked through one pointer of the node. The chains double in
// number whenever the nodes reach it, so that a chain holds one or two nodes on average whatever
// the file holds: a probe costs the same in a file of ten keys and in one of a million.
class QInfoIndex {
public:
    QInfoIndex(QInfoNode* QInfoNode::*linkArg, uint32_t QInfoNode::*keyArg)
        : link(linkArg), key(keyArg), heads(64, nullptr)
    {
    }
    QInfoNode* First(uint32_t k) const { return heads[k & (heads.size() - 1)]; }
    QInfoNode* Next(const QInfoNode* n) const { return n->*link; }
    void Add(QInfoNode* node, uint32_t k)
    {
        if (count >= heads.size()) Grow();
        node->*key = k;
        Link(node);
        count++;
    }

private:
    void Link(QInfoNode* node)
    {
        QInfoNode*& head = heads[(node->*key) & (heads.size() - 1)];
        node->*link = head;
        head = node;
    }
    void Grow()
    {
        std::vector<QInfoNode*> old(heads.size() * 2, nullptr);
        old.swap(heads);
        for (QInfoNode* n : old)
            while (n) {
                QInfoNode* next = n->*link;
                Link(n);
                n = next;
            }
    }

    QInfoNode* QInfoNode::*link;
    uint32_t QInfoNode::*key;
    std::vector<QInfoNode*> heads; // a power of two in size
    size_t count = 0;
};

namespace {

const int maxToken = 1023;

// FNV-1a over the text, from 'h' on, with the high bits folded down: the table takes the low ones.
uint32_t HashText(const char* text, uint32_t h = 2166136261u)
{
    for (; *text; text++) h = (h ^ static_cast<unsigned char>(*text)) * 16777619u;
    return h ^ (h >> 16);
}

uint32_t ChildKey(const QInfoNode* parent, const char* name)
{
    uint64_t p = uint64_t(reinterpret_cast<uintptr_t>(parent)) * 0x9E3779B97F4A7C15ull;
    return HashText(name, uint32_t(p >> 32));
}

void CopyOut(char* out, const char* text)
{
    if (!out) return;
    size_t n = text ? std::strlen(text) : 0;
    if (n > size_t(QInfo::MAX_PATH - 1)) n = QInfo::MAX_PATH - 1;
    if (n) std::memcpy(out, text, n);
    out[n] = 0;
}

void SetValue(QInfoNode* node, const char* value)
{
    if (node->value) qfree(node->value);
    node->value = qstrdup(value);
}

// The parts of a dotted path, split in a copy of it.
struct PathParts {
    std::vector<char> text;
    std::vector<const char*> parts;
    explicit PathParts(const char* path)
    {
        text.assign(path, path + std::strlen(path) + 1);
        char* p = text.data();
        parts.push_back(p);
        for (; *p; p++)
            if (*p == '.') {
                *p = 0;
                parts.push_back(p + 1);
            }
    }
};

// Reads tokens and line remainders from a tree file.
class Parser {
public:
    Parser(QFile& f, int& lineCounter) : file(f), line(lineCounter) {}

    // The next token, empty at the end of the file.
    const char* Token()
    {
        int c;
        for (;;) {
            c = Get();
            if (c == '\n') line++;
            else if (c != ' ' && c != '\r' && c != '\t' && c != 160) break;
        }
        int n = 0;
        if (c >= 0 && std::strchr(";{}=~", c)) {
            buf[n++] = char(c);
        } else if (c >= 0) {
            // Neither a tab nor a brace ends a token: "key{" is one name.
            for (;;) {
                buf[n++] = char(c);
                if (n == maxToken) break;
                c = Get();
                if (c < 0) { // a token that runs into the end of the file is dropped
                    n = 0;
                    break;
                }
                if (c == ' ' || c == '\n' || c == '\r' || c == '=' || c == '~' || c == 160) {
                    file.UnGetChar(c);
                    break;
                }
            }
        }
        buf[n] = 0;
        return buf;
    }

    // The rest of the line behind the token; the line end is consumed and not counted.
    const char* RestOfLine()
    {
        int n = 0;
        while (n < maxToken) {
            int c = Get();
            if (c < 0 || c == '\n' || c == '\r') break;
            buf[n++] = char(c);
        }
        buf[n] = 0;
        return buf;
    }

private:
    int Get()
    {
        int c = file.GetChar();
        return (c == 255 && file.IsEOF()) || !file.IsOpen() ? -1 : c;
    }

    QFile& file;
    int& line;
    char buf[maxToken + 1];
};

} // namespace

QInfo::QInfo(const char* name, int infoFlags)
    : fileName(qstrdup(name ? name : "")), root(new QInfoNode), flags(uint32_t(infoFlags)), fallback(nullptr),
      line(1), paths(new QInfoIndex(&QInfoNode::hashNext, &QInfoNode::pathKey)),
      children(new QInfoIndex(&QInfoNode::childNext, &QInfoNode::childKey)), fileTime(0)
{
    SetName(name);
    if (!fileName) qfatal("QInfo: out of memory for '%s'", name ? name : "");
    root->type = QInfoNode::GROUP;
    root->name = "root";
    if (!(flags & QIF_CREATE)) Read();
}

QInfo::QInfo(const char* name, const void* text, int size, int infoFlags)
    : QInfo(name, infoFlags | QIF_CREATE)
{
    flags = uint32_t(infoFlags) | QIF_READ;
    QFile file(fileName, const_cast<void*>(text), size); // only read
    Parse(file);
}

QInfo::~QInfo()
{
    if (flags & QIF_MODIFIED) Write(nullptr, true);
    FreeTree();
    delete paths;
    delete children;
    qfree(fileName);
    delete fallback;
}

void QInfo::SetFallback(QInfo* info)
{
    delete fallback;
    fallback = info;
}

void QInfo::FreeTree()
{
    std::vector<QInfoNode*> stack;
    if (root) stack.push_back(root);
    while (!stack.empty()) {
        QInfoNode* n = stack.back();
        stack.pop_back();
        for (QInfoNode* c = n->child; c; c = c->next) stack.push_back(c);
        if (n->value) qfree(n->value);
        delete n;
    }
    root = nullptr;
}

void QInfo::GetFullPath(const QInfoNode* node, char* out, int size)
{
    const QInfoNode* names[MAX_LEVEL];
    int count = 0;
    for (const QInfoNode* n = node; n && n->parent && count < MAX_LEVEL; n = n->parent) names[count++] = n;
    int len = 0;
    out[0] = 0;
    for (int i = count - 1; i >= 0; i--) {
        const char* name = names[i]->name.cstr();
        int n = qstrlen(name);
        if (i != count - 1 && len < size - 1) out[len++] = '.';
        if (n > size - 1 - len) n = size - 1 - len;
        std::memcpy(out + len, name, size_t(n));
        len += n;
        out[len] = 0;
    }
}

void QInfo::AppendChild(QInfoNode* group, QInfoNode* node)
{
    node->parent = group;
    if (group->lastChild) group->lastChild->next = node;
    else group->child = node;
    group->lastChild = node;
    // Only the first child of a name is ever found by it. A node's parent and name never change.
    if (node->type != QInfoNode::COMMENT && !FirstChild(group, node->name.cstr()))
        children->Add(node, ChildKey(group, node->name.cstr()));
}

QInfoNode* QInfo::FirstChild(QInfoNode* group, const char* name) const
{
    uint32_t k = ChildKey(group, name);
    for (QInfoNode* n = children->First(k); n; n = children->Next(n))
        if (n->childKey == k && n->parent == group && n->name == name) return n;
    return nullptr;
}

// Searches the children of 'group', then those of the subtree it takes over, and so on down its
// chain of references, at most MAX_LEVEL of them (a reference may point back at its own group).
QInfoNode* QInfo::FindChild(QInfoNode* group, const char* name) const
{
    int steps = 0;
    for (QInfoNode* g = group; g && steps <= MAX_LEVEL; g = g->ref, steps++) {
        QInfoNode* c = FirstChild(g, name);
        // A hidden node stands in the table like any other; one of the same name behind it may not.
        while (c && (c->flags & QInfoNode::QINF_HIDDEN)) {
            c = c->next;
            while (c && (c->type == QInfoNode::COMMENT || c->name != name)) c = c->next;
        }
        if (c) return c;
    }
    return nullptr;
}

void QInfo::AddToHash(QInfoNode* node)
{
    if (node->flags & QInfoNode::QINF_HASHED) return; // its path doesn't change: once is enough
    node->flags |= QInfoNode::QINF_HASHED;
    char path[MAX_PATH];
    GetFullPath(node, path, sizeof path);
    uint32_t k = HashText(path);
    // Of two assignments to one path the first is found: the later one needn't stand in the table.
    for (QInfoNode* n = paths->First(k); n; n = paths->Next(n)) {
        char other[MAX_PATH];
        if (n->pathKey != k || n->name != node->name) continue;
        GetFullPath(n, other, sizeof other);
        if (std::strcmp(path, other) == 0) return;
    }
    paths->Add(node, k);
}

void QInfo::Read()
{
    line = 1;
    QFile file(fileName, QFile::READ | QFile::MEMORY);
    if (!file.IsOpen()) {
        if (!(flags & QIF_SILENT)) {
            char cwd[1024];
            PlatformCurrentDirectory(cwd, sizeof cwd);
            QWARNING("QInfo: can't open '%s', current directory is '%s'", fileName, cwd);
        }
        return;
    }
    flags |= QIF_READ;
    PlatformFileTime(fileName, &fileTime);
    Parse(file);
}

void QInfo::Parse(QFile& file)
{
    // The open groups, the root at level 0. One node may stand open at two levels ("a { {"), so
    // each group keeps its own last child rather than the level.
    QInfoNode* groups[MAX_LEVEL] = {root};
    int level = 0;
    QInfoNode* lastNode = nullptr;
    QInfoNode* lastKey = nullptr;
    bool refused = false; // the last token was a key refused for its point
    auto append = [&](QInfoNode* node) { AppendChild(groups[level], node); };

    Parser parser(file, line);
    for (;;) {
        const char* token = parser.Token();
        if (!token[0]) break;
        char t = token[1] ? 0 : token[0]; // the one-character tokens
        if (refused && (t == '=' || t == '~')) {
            parser.RestOfLine(); // the refused key's value or reference goes with it
            refused = false;
            continue;
        }
        refused = false;
        if (t == ';') {
            QInfoNode* node = new QInfoNode;
            node->type = QInfoNode::COMMENT;
            node->name = ";";
            node->value = qstrdup(parser.RestOfLine());
            append(node);
            lastNode = node;
        } else if (t == '{') {
            if (!lastKey) {
                QWARNING("QInfo: { without groupname");
                continue;
            }
            lastKey->type = QInfoNode::GROUP;
            if (level + 1 >= MAX_LEVEL) {
                QWARNING("QInfo: '%s' nests too deep (max %d levels)", fileName, int(MAX_LEVEL));
            } else {
                level++;
            }
            groups[level] = lastKey;
        } else if (t == '}') {
            if (level == 0) QERROR("QInfo(%s); more '}' brackets than '{' near line %d", fileName, line);
            else level--;
            if (flags & QIF_STOP_AT_BRACE) break;
        } else if (t == '=') {
            const char* value = parser.RestOfLine();
            if (!lastNode) {
                QWARNING("QInfo: assign without symbol in line %d", line);
                continue;
            }
            SetValue(lastNode, value);
            AddToHash(lastNode);
        } else if (t == '~') {
            const char* path = parser.RestOfLine();
            if (!lastNode) {
                QWARNING("QInfo: reference without symbol in line %d", line);
                continue;
            }
            QInfoNode* target = FindNode(path);
            if (!target) {
                QWARNING("QInfo(%s): reference (~) to unknown tree '%s' in line %d", fileName, path, line);
            } else if (!target->child) {
                QWARNING("QInfo(%s): ref to tree '%s' without child in line %d", fileName, path, line);
            } else {
                lastNode->ref = target;
                lastNode->type = QInfoNode::GROUP;
            }
        } else if (std::strchr(token, '.')) {
            QWARNING("QInfo(%s): key with '.' found (%s) - won't work; use { } to define subtrees (line %d)",
                     fileName, token, line);
            // The refused key takes its '=' with it, rather than give it to the node before.
            refused = true;
        } else {
            QInfoNode* node = new QInfoNode;
            node->type = QInfoNode::KEY;
            node->name = token;
            append(node);
            lastNode = lastKey = node;
        }
    }
    if (level > 0 && !(flags & QIF_STOP_AT_BRACE))
        QERROR("QInfo(%s); brackets don't match; still %d closing bracket(s) expected at end of file.", fileName,
               level);
}

QInfoNode* QInfo::WalkTo(const char* path)
{
    if (!path || !path[0]) return root;
    PathParts p(path);
    QInfoNode* cur = root;
    for (size_t i = 0; i < p.parts.size(); i++) {
        QInfoNode* found = FindChild(cur, p.parts[i]);
        if (!found) return nullptr;
        bool last = i + 1 == p.parts.size();
        if (found->type != QInfoNode::GROUP && !last) return nullptr; // a key ends the path
        cur = found;
    }
    return cur;
}

QInfoNode* QInfo::FindNode(const char* path)
{
    return WalkTo(path);
}

bool QInfo::Lookup(const char* path, char* out, const char* def)
{
    if (!path) path = "";
    const char* lastPart = std::strrchr(path, '.');
    lastPart = lastPart ? lastPart + 1 : path;
    char full[MAX_PATH];
    uint32_t k = HashText(path);
    for (QInfoNode* n = paths->First(k); n; n = paths->Next(n)) {
        if (n->pathKey != k || n->name != lastPart) continue;
        GetFullPath(n, full, sizeof full);
        if (std::strcmp(full, path) == 0) {
            n->flags |= QInfoNode::QINF_READ;
            CopyOut(out, n->value);
            return true;
        }
    }
    QInfoNode* n = path[0] ? WalkTo(path) : nullptr;
    if (n && !(n->flags & QInfoNode::QINF_HIDDEN) && !(n->type == QInfoNode::GROUP && !n->value)) {
        n->flags |= QInfoNode::QINF_READ;
        CopyOut(out, n->value ? n->value : "?");
        return true;
    }
    if (fallback) {
        bool found = fallback->Lookup(path, out, def);
        if (found && (flags & QIF_DEBUG_FALLBACK)) QDEBUG("QInfo: '%s' only found in fallback file.", path);
        return found;
    }
    if (flags & QIF_REQUIRED) QWARNING("QInfo: '%s' not found in info or fallback - required", path);
    CopyOut(out, def);
    return false;
}

bool QInfo::GetString(const char* path, char* out, const char* def)
{
    return Lookup(path, out, def);
}

bool QInfo::GetString(const char* path, qstring& out, const char* def)
{
    char text[MAX_PATH];
    bool found = Lookup(path, text, def);
    out = text;
    return found;
}

int QInfo::GetInt(const char* path, int def)
{
    char text[MAX_PATH];
    if (!Lookup(path, text, nullptr)) return def;
    qstring s(text), reason;
    if (!s.ValidateInt(&reason))
        QWARNING("%s value '%s' (in %s) is not a valid integer: %s", path, text, fileName, reason.cstr());
    return Eval(text);
}

float QInfo::GetFloat(const char* path, float def)
{
    char text[MAX_PATH];
    if (!Lookup(path, text, nullptr)) return def;
    qstring s(text), reason;
    if (!s.ValidateFloat(&reason))
        QWARNING("%s value '%s' (in %s) is not a valid float: %s", path, text, fileName, reason.cstr());
    return float(std::atof(text));
}

bool QInfo::GetBool(const char* path, bool def)
{
    char text[MAX_PATH];
    if (!Lookup(path, text, nullptr)) return def;
    return Eval(text) != 0;
}

bool QInfo::GetFloats(const char* path, int n, float* out, const float* def)
{
    char text[MAX_PATH];
    Lookup(path, text, nullptr);
    int i = 0;
    char* p = text;
    while (i < n) {
        while (*p == ' ' || *p == ',') p++;
        if (!*p) break;
        char* start = p;
        while (*p && *p != ' ' && *p != ',') p++;
        char end = *p;
        *p = 0;
        out[i++] = float(std::atof(start));
        *p = end;
    }
    for (; i < n; i++) out[i] = def ? def[i] : 0.0f;
    return true;
}

bool QInfo::SetString(const char* path, const char* value)
{
    if (!path || !path[0]) return false;
    if (!value) value = "";
    PathParts p(path);
    QInfoNode* cur = root;
    for (size_t i = 0; i < p.parts.size(); i++) {
        bool last = i + 1 == p.parts.size();
        if (!p.parts[i][0]) return false; // "a..b" names nothing
        QInfoNode* found = FirstChild(cur, p.parts[i]);
        if (!found) {
            found = new QInfoNode;
            found->type = last ? QInfoNode::KEY : QInfoNode::GROUP;
            found->name = p.parts[i];
            AppendChild(cur, found);
        } else if (found->type == QInfoNode::GROUP ? last : !last) {
            return false;
        }
        cur = found;
    }
    if (cur->value && std::strcmp(cur->value, value) == 0) return true;
    SetValue(cur, value);
    flags |= QIF_MODIFIED;
    return true;
}

bool QInfo::Write(const char* name, bool ask)
{
    if (!name && !(flags & QIF_MODIFIED)) return true;
    if (!name) name = fileName;
    if (flags & QIF_CREATE) {
        flags &= ~uint32_t(QIF_CREATE);
    } else if (ask) {
        int64_t diskTime = 0;
        qstring question("The file '");
        question += name;
        const char* title;
        if (PlatformFileTime(name, &diskTime)) {
            if (diskTime == fileTime) goto write;
            question += "' was modified - it will be overwritten; do you want to overwrite?";
            title = "File was modified";
        } else {
            question += "' does not exist (anymore) - it will be created; do you want this?";
            title = "File does not exist";
        }
        if (QAskUser(title, question.cstr(), 0)) {
            flags &= ~uint32_t(QIF_MODIFIED);
            return false;
        }
    }
write:
    // Whole or not at all: the tree goes to a file beside the old one, which it replaces only once
    // every byte stands. A device or a pipe is written directly.
    QOutput out;
    bool written = out.Open(name);
    if (written) {
        WriteNode(out.Stream(), root, -1);
        written = out.Commit();
    }
    if (!written) {
        QWARNING("QInfo:Write(); file (%s) can't be written", name);
        return false;
    }
    flags &= ~uint32_t(QIF_MODIFIED);
    PlatformFileTime(name, &fileTime);
    return true;
}

void QInfo::WriteNode(FILE* out, QInfoNode* node, int level)
{
    // Pre-order through the siblings of 'node' and their subtrees, without recursion: a tree made
    // by SetString may be far deeper than any file.
    std::vector<QInfoNode*> open; // groups whose closing brace is still due
    std::string text;
    auto indent = [&](int lvl) {
        text.assign(size_t(lvl > 0 ? 2 * lvl : 0), ' ');
    };
    auto emit = [&]() { std::fwrite(text.data(), 1, text.size(), out); };
    auto isRoot = [](const QInfoNode* n) { return n->name == "root"; };

    QInfoNode* n = node;
    while (n || !open.empty()) {
        if (!n) { // the siblings of a group's children are done: close the group
            QInfoNode* g = open.back();
            open.pop_back();
            level--;
            if (!isRoot(g)) {
                indent(level);
                text += "}\n";
                emit();
            }
            n = g->next;
            continue;
        }
        if (n->flags & QInfoNode::QINF_HIDDEN) {
            n = n->next;
            continue;
        }
        indent(level);
        if (n->type == QInfoNode::COMMENT) {
            text += ';';
            text += n->value ? n->value : "";
            text += '\n';
            emit();
        } else if (n->type == QInfoNode::KEY) {
            text += n->name.cstr();
            text += '=';
            text += n->value ? n->value : "";
            text += '\n';
            emit();
        } else if (n->type == QInfoNode::GROUP) {
            if (!isRoot(n)) {
                text += n->name.cstr();
                if (n->ref) {
                    char refPath[MAX_PATH];
                    GetFullPath(n->ref, refPath, sizeof refPath);
                    text += '~';
                    text += refPath;
                }
                if (n->value) {
                    text += '=';
                    text += n->value;
                }
                text += "\n";
                emit();
                indent(level);
                text += "{\n";
                emit();
            }
            open.push_back(n);
            level++;
            n = n->child;
            continue;
        } else {
            QERROR("QInfo:Write() internal error; unknown node type");
        }
        n = n->next;
    }
}

QInfoIterator::QInfoIterator(QInfo* infoArg, const char* path) : info(infoArg), current(nullptr), depth(0)
{
    if (!info) return;
    QInfoNode* n = info->FindNode(path);
    if (!n) return;
    if (n == info->GetRoot() || n->type == QInfoNode::GROUP) current = n->child;
    else current = n;
}

bool QInfoIterator::GetNextAny(bool recursive)
{
    if (!current) return false;
    if (recursive && current->child) {
        if (depth >= QInfo::MAX_LEVEL) QERROR("nestLevel>%d (QInfo::MAX_LEVEL) in QInfoIterator", int(QInfo::MAX_LEVEL));
        else stack[depth++] = current;
        current = current->child;
        return true;
    }
    current = current->next;
    while (!current && depth > 0) current = stack[--depth]->next;
    return current != nullptr;
}

bool QInfoIterator::GetNext(qstring& path, bool recursive, qstring* name)
{
    QInfoNode* n;
    do {
        n = current;
        if (!n) return false;
        GetNextAny(recursive);
    } while (n->type == QInfoNode::COMMENT);
    char full[QInfo::MAX_PATH];
    QInfo::GetFullPath(n, full, sizeof full);
    path = full;
    if (name) *name = n->name;
    return true;
}

} // namespace tarvik
