// AsciiExportModifier: an optional words file that renames, scales and drops the columns of the
// ASCII export and chooses its separator. The file is a sequence of words (QFile::GetWord): either
// "separator" and one of tab, space, comma, or three words: identifier, new name ("-" drops the
// column) and factor. Lines and comments mean nothing to it.
#pragma once

#include "foundation/qstring.h"

namespace tarvik {

class QFile;

class AsciiExportModifier {
public:
    enum { MAX_CONVERSIONS = 1000 };

    AsciiExportModifier() : count(0), separator(' ') {}
    AsciiExportModifier(const AsciiExportModifier&) = delete;
    AsciiExportModifier& operator=(const AsciiExportModifier&) = delete;

    bool Load(const char* fileName, qstring* error); // on false 'error' holds the reason
    bool Load(QFile& file, qstring* error);          // the same from an open file
    void Rename(qstring& name) const;                // the first matching conversion counts
    float GetFactor(const qstring& name) const;      // 1.0 without a matching conversion
    char GetSeparator() const { return separator; }
    int GetCount() const { return count; }

private:
    struct Conversion {
        qstring from; // a signal's type identifier
        qstring to;   // the column's name; "-" drops it
        float factor = 1.0f;
    };
    const Conversion* Find(const qstring& name) const;

    int count;
    char separator;
    Conversion conversions[MAX_CONVERSIONS];
};

} // namespace tarvik
