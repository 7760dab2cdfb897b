// QLanguage: a table of texts by key, with a further table asked when a key isn't found.
// The application holds the current one; a program without it uses the callers' defaults.
#pragma once

#include "foundation/qstring.h"

namespace tarvik {

class QLanguage {
public:
    enum { MAX_ENTRIES = 1000 };

    QLanguage() : count(0), further(nullptr) {}
    QLanguage(const QLanguage&) = delete;
    QLanguage& operator=(const QLanguage&) = delete;

    bool Add(const char* key, const char* text); // false when full
    void SetFurther(QLanguage* language) { further = language; } // borrowed
    int GetCount() const { return count; }

    // The text of the first entry with this key; else the further table's answer to the key alone
    // (without 'def', so "?key?" if no table of the chain has it); with no further table 'def', or
    // "?key?" in a static buffer of 1024 characters.
    const char* Get(const char* key, const char* def = nullptr) const;

private:
    const char* Find(const char* key) const;

    qstring keys[MAX_ENTRIES];
    qstring texts[MAX_ENTRIES];
    int count;
    QLanguage* further;
};

// The application's current language table (null without an application or a table).
QLanguage* QGetLanguage();

} // namespace tarvik
