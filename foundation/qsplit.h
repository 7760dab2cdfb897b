// QSplit: a line cut into fields, at once, by one of a few fixed separator sets.
//
// Without QSPLIT_KEEP_EMPTY runs of separators fold into one and separators at the ends make no
// fields. With it every separator ends a field, an empty one too, and text behind the last
// separator makes no field. Type 1 is the form a=b&c=d with "+" and %XX decoded in the values.
// A key mode other than 8 parts each field at its first "=" into name and value.
#pragma once

#include "foundation/qstring.h"

namespace tarvik {

class QSplit {
public:
    enum Type {
        QSPLIT_WHITE = 0,     // blank, tab, line feed
        QSPLIT_AMPERSAND = 1, // a=b&c=d
        QSPLIT_SEMICOLON = 2,
        QSPLIT_COMMA = 3,
        QSPLIT_TAB = 4,       // tab, line feed
        QSPLIT_SLASH = 5,
        QSPLIT_EQUALS = 7,
    };
    enum { QSPLIT_KEEP_EMPTY = 1 };
    enum { KEYMODE_PLAIN = 8 };

    QSplit(const char* text, int type, int flags = 0, int keyMode = KEYMODE_PLAIN);
    virtual ~QSplit();
    QSplit(const QSplit&) = delete;
    QSplit& operator=(const QSplit&) = delete;

    // For a caller that cuts by rules of its own: no fields, then one more field at the end.
    void Clear() { count = 0; } // the strings stay allocated and are refilled
    void AddField(const char* value);

    int GetCount() const { return count; }
    const qstring& GetValue(int n) const; // a shared empty string outside the range
    const qstring& GetName(int n) const;

private:
    void Add(const char* begin, const char* end);
    void SplitAmpersand(const char* text);

    int count;
    int flags;
    int capacity;
    qstring** names;  // owned, 'capacity' entries, each allocated
    qstring** values; // owned, likewise
};

} // namespace tarvik
