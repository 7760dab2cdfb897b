#include "foundation/qstring.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tarvik {

static const char wideText[] = "<unicodestr-nyi>";

static int WideLength(const qwchar* w)
{
    int n = 0;
    if (w)
        while (w[n]) n++;
    return n;
}

static char* NewNarrow(int capacity)
{
    char* p = static_cast<char*>(std::calloc(size_t(capacity), 1));
    if (!p) qfatal("qstring:Resize realloc failed");
    return p;
}

qstring::qstring(int) : flags(0), s(nullptr), ws(nullptr), capacity(0) {}

qstring::qstring(const char* text) : flags(0), s(nullptr), ws(nullptr), capacity(0)
{
    int len = qstrlen(text);
    capacity = len + 32;
    s = NewNarrow(capacity);
    if (len) std::memcpy(s, text, size_t(len));
}

qstring::qstring(const qstring& other) : flags(0), s(nullptr), ws(nullptr), capacity(0)
{
    if (other.IsWide() && other.ws) {
        int len = WideLength(other.ws);
        capacity = len + 33;
        ws = static_cast<qwchar*>(std::calloc(size_t(capacity), sizeof(qwchar)));
        if (!ws) qfatal("qstring:Resize realloc failed");
        std::memcpy(ws, other.ws, size_t(len) * sizeof(qwchar));
        flags = QSTRF_WIDE;
    } else if (other.s) {
        int len = int(std::strlen(other.s));
        capacity = len + 33;
        s = NewNarrow(capacity);
        std::memcpy(s, other.s, size_t(len));
    }
}

qstring::~qstring()
{
    FreeBuffers();
}

void qstring::FreeBuffers()
{
    std::free(s);
    std::free(ws);
    s = nullptr;
    ws = nullptr;
    capacity = 0;
}

void qstring::MakeNarrow()
{
    if (IsWide()) {
        FreeBuffers();
        flags &= ~uint32_t(QSTRF_WIDE);
    }
}

void qstring::EnsureNarrow(int needed)
{
    if (needed <= capacity) return;
    char* p = static_cast<char*>(std::realloc(s, size_t(needed)));
    if (!p) qfatal("qstring:Resize realloc failed");
    if (!s) p[0] = 0;
    s = p;
    capacity = needed;
}

qstring& qstring::operator=(const qstring& other)
{
    if (this == &other) return *this;
    if (other.IsWide()) return *this = other.ws;
    return *this = other.cstr();
}

qstring& qstring::operator=(const char* text)
{
    MakeNarrow();
    if (!text) {
        Empty();
        return *this;
    }
    int len = int(std::strlen(text));
    EnsureNarrow(len + 1); // a text inside our own buffer is shorter than it, so it never moves here
    std::memmove(s, text, size_t(len) + 1);
    return *this;
}

qstring& qstring::operator=(const qwchar* text)
{
    int len = WideLength(text);
    qwchar* copy = static_cast<qwchar*>(std::calloc(size_t(len) + 1, sizeof(qwchar)));
    if (!copy) qfatal("qstring:Resize realloc failed");
    if (len) std::memcpy(copy, text, size_t(len) * sizeof(qwchar));
    FreeBuffers();
    ws = copy;
    capacity = len + 1;
    flags |= QSTRF_WIDE;
    return *this;
}

qstring& qstring::operator=(int value)
{
    MakeNarrow();
    EnsureNarrow(32);
    std::snprintf(s, size_t(capacity), "%d", value);
    return *this;
}

int qstring::GetLength() const
{
    if (IsWide()) return WideLength(ws);
    return s ? int(std::strlen(s)) : 0;
}

bool qstring::IsEmpty() const
{
    if (IsWide()) return !ws || ws[0] == 0;
    return !s || s[0] == 0;
}

const char* qstring::cstr() const
{
    if (IsWide()) return wideText;
    return s ? s : "";
}

bool qstring::operator==(const char* text) const
{
    if (!text) text = "";
    if (IsWide()) {
        const qwchar* w = ws ? ws : reinterpret_cast<const qwchar*>(u"");
        int i = 0;
        // Each narrow character is sign-extended, as a char widened to a 16-bit character would be.
        for (; w[i] && text[i]; i++)
            if (w[i] != qwchar(int16_t(static_cast<signed char>(text[i])))) return false;
        return w[i] == 0 && text[i] == 0;
    }
    return std::strcmp(cstr(), text) == 0;
}

bool qstring::operator!=(const char* text) const
{
    if (!text) text = "";
    return std::strcmp(cstr(), text) != 0;
}

bool qstring::operator<(const qstring& other) const
{
    const unsigned char* a = reinterpret_cast<const unsigned char*>(cstr());
    const unsigned char* b = reinterpret_cast<const unsigned char*>(other.cstr());
    for (;; a++, b++) {
        int ca = std::tolower(*a), cb = std::tolower(*b);
        if (ca != cb) return ca < cb;
        if (!ca) return false;
    }
}

char& qstring::operator[](int index)
{
    static char terminator;
    int len = GetLength();
    if (index < 0 || index > len || IsWide()) {
        QWARNING("qstring(%s): ([]) index %d out of range (0..%d)", cstr(), index, len);
        if (s && !IsWide()) return s[len];
        terminator = 0;
        return terminator;
    }
    if (!s) {
        terminator = 0;
        return terminator;
    }
    return s[index];
}

int qstring::Find(const char* what) const
{
    if (IsWide()) {
        QERROR("qstring:Find() nyi for unicode");
        return -1;
    }
    if (IsEmpty() || !what || !what[0]) return -1;
    const char* hit = std::strstr(s, what);
    return hit ? int(hit - s) : -1;
}

int qstring::FindChar(char c) const
{
    if (!c) return -1;
    if (IsWide()) {
        for (int i = 0; ws && ws[i]; i++)
            if (ws[i] == qwchar(int16_t(static_cast<signed char>(c)))) return i;
        return -1;
    }
    if (!s) return -1;
    const char* hit = std::strchr(s, c);
    return hit ? int(hit - s) : -1;
}

bool qstring::Contains(const char* what) const
{
    if (IsWide()) {
        QWARNING("qstring:Contains(const char*) NYI for UC");
        return false;
    }
    if (IsEmpty() || !what || !what[0]) return false;
    return std::strstr(s, what) != nullptr;
}

void qstring::Empty()
{
    if (IsWide()) {
        if (ws) ws[0] = 0;
    } else if (s) {
        s[0] = 0;
    }
}

void qstring::Resize(int newCapacity)
{
    if (capacity >= newCapacity) return;
    if (IsWide()) {
        qwchar* p = static_cast<qwchar*>(std::realloc(ws, size_t(newCapacity) * sizeof(qwchar)));
        if (!p) qfatal("qstring:Resize realloc failed");
        // The new part is zeroed so the text stays terminated even without an old buffer.
        std::memset(p + capacity, 0, size_t(newCapacity - capacity) * sizeof(qwchar));
        ws = p;
        capacity = newCapacity;
        return;
    }
    char* p = NewNarrow(newCapacity);
    if (s) std::memcpy(p, s, size_t(capacity));
    std::free(s);
    s = p;
    capacity = newCapacity;
}

qstring& qstring::operator+=(const char* text)
{
    if (IsWide()) {
        QERROR("qstring:operator+=(const char*) nyi for unicode");
        return *this;
    }
    if (!text || !text[0]) return *this;
    int oldLen = GetLength();
    int addLen = int(std::strlen(text));
    if (oldLen + addLen + 1 > capacity) {
        // The text may live in our own buffer, which is about to move.
        bool inside = s && text >= s && text < s + capacity;
        size_t offset = inside ? size_t(text - s) : 0;
        EnsureNarrow(oldLen + addLen + 1);
        if (inside) text = s + offset;
    }
    std::memmove(s + oldLen, text, size_t(addLen));
    s[oldLen + addLen] = 0;
    return *this;
}

qstring& qstring::operator+=(const qstring& text)
{
    if (&text == this) {
        qstring copy(text);
        return *this += copy.cstr();
    }
    return *this += text.cstr();
}

qstring& qstring::operator+=(char c)
{
    char text[2] = {c, 0};
    return *this += text;
}

qstring& qstring::operator+=(int value)
{
    char text[16];
    std::snprintf(text, sizeof text, "%d", value);
    return *this += text;
}

qstring qstring::operator+(const qstring& right) const
{
    return *this + right.cstr();
}

qstring qstring::operator+(const char* right) const
{
    if (!right || !right[0]) return *this;
    qstring result(cstr());
    result += right;
    return result;
}

void qstring::CutFirst()
{
    int len = GetLength();
    if (len == 0) return;
    if (IsWide()) std::memmove(ws, ws + 1, size_t(len) * sizeof(qwchar));
    else std::memmove(s, s + 1, size_t(len));
}

void qstring::CutLast()
{
    int len = GetLength();
    if (len == 0) return;
    if (IsWide()) ws[len - 1] = 0;
    else s[len - 1] = 0;
}

void qstring::ToLower()
{
    if (!IsWide()) qstrlwr(s);
}

void qstring::ToUpper()
{
    if (!IsWide()) qstrupr(s);
}

bool qstring::Replace(const char* from, const char* to)
{
    if (!to) to = "";
    if (IsWide() || IsEmpty() || !from || !from[0] || std::strcmp(from, to) == 0) return false;
    int at = Find(from);
    if (at < 0) return false;
    qstring result = GetSubstring(0, at - 1);
    if (at == 0) result = "";
    result += to;
    result += s + at + std::strlen(from);
    *this = result.cstr();
    return true;
}

qstring qstring::GetSubstring(int from, int to) const
{
    if (IsWide()) {
        QWARNING("qstring:GetSubstring() NYI for Unicode");
        return *this;
    }
    qstring result("");
    int len = GetLength();
    if (len == 0) return result;
    int last = len - 1;
    if (from < 0) from = 0;
    if (from > last) from = last;
    if (to == -1 || to > last) to = last;
    if (to < from) return result;
    result.EnsureNarrow(to - from + 2);
    std::memcpy(result.s, s + from, size_t(to - from + 1));
    result.s[to - from + 1] = 0;
    return result;
}

static bool IsSeparator(char c) { return c == '/' || c == '\\'; }

bool qstring::CutExtension()
{
    if (IsWide()) {
        QWARNING("qstring:CutExtension() NYI for Unicode");
        return false;
    }
    for (int i = GetLength() - 1; i >= 0; i--)
        if (s[i] == '.') {
            s[i] = 0;
            return true;
        }
    return false;
}

bool qstring::CutFile()
{
    if (IsWide()) {
        QWARNING("qstring:CutFile() NYI for Unicode");
        return false;
    }
    for (int i = GetLength() - 1; i >= 0; i--)
        if (IsSeparator(s[i])) {
            s[i] = 0;
            return true;
        }
    return false;
}

bool qstring::CutPath()
{
    if (IsWide()) {
        QWARNING("qstring:CutPath() NYI for Unicode");
        return false;
    }
    int len = GetLength();
    for (int i = len - 1; i >= 0; i--)
        if (IsSeparator(s[i])) {
            std::memmove(s, s + i + 1, size_t(len - i));
            return true;
        }
    return false;
}

// Walks the text; the first character outside 'allowed' makes it invalid, with the reason.
static bool Validate(const qstring& text, const char* allowed, char special, const char* specialReason,
                     qstring* reason)
{
    for (const char* p = text.cstr(); *p; p++) {
        if (std::isdigit(static_cast<unsigned char>(*p)) || std::strchr(allowed, *p)) continue;
        if (reason) {
            if (*p == special) {
                *reason = specialReason;
            } else {
                *reason = "character '";
                *reason += *p;
                *reason += "' is not allowed";
            }
        }
        return false;
    }
    return true;
}

bool qstring::ValidateInt(qstring* reason) const
{
    if (reason) reason->Empty();
    if (IsWide()) {
        QERROR("Not supported for Unicode");
        return true;
    }
    return Validate(*this, " -+*%", '.', "a '.' is not allowed (floating point)", reason);
}

bool qstring::ValidateFloat(qstring* reason) const
{
    if (reason) reason->Empty();
    if (IsWide()) {
        QERROR("Not supported for Unicode");
        return true;
    }
    return Validate(*this, " -+.e", ',', "use '.' instead of ','", reason);
}

} // namespace tarvik
