#include "telemetry/analyse_modifier.h"

#include "foundation/qfile.h"
#include "foundation/qmessage.h"

#include <cstdlib>

namespace tarvik {

bool AsciiExportModifier::Load(const char* fileName, qstring* error)
{
    QFile file(fileName, QFile::READ);
    if (!file.IsOpen()) {
        if (error) *error = "file not found";
        return false;
    }
    return Load(file, error);
}

bool AsciiExportModifier::Load(QFile& file, qstring* error)
{
    separator = ' ';
    count = 0;
    bool ok = true;
    qstring word;
    while (!file.IsEOF()) {
        file.GetWord(word);
        if (word == "separator") {
            file.GetWord(word);
            if (word == "tab") separator = '\t';
            else if (word == "space") separator = ' ';
            else if (word == "comma") separator = ',';
            else {
                if (error) {
                    *error += "Unknown separator name (";
                    *error += word;
                    *error += ")";
                }
                ok = false;
            }
            continue;
        }
        if (count >= MAX_CONVERSIONS) {
            QERROR("AsciiExportModifier:Load(); too many signal conversions defined; only %d supported",
                   int(MAX_CONVERSIONS));
            count--; // the last conversion is overwritten
        }
        Conversion& c = conversions[count];
        c.from = word;
        file.GetWord(c.to);
        file.GetWord(word);
        c.factor = float(std::atof(word.cstr()));
        count++;
    }
    return ok;
}

const AsciiExportModifier::Conversion* AsciiExportModifier::Find(const qstring& name) const
{
    for (int i = 0; i < count; i++)
        if (conversions[i].from == name) return &conversions[i];
    return nullptr;
}

void AsciiExportModifier::Rename(qstring& name) const
{
    if (const Conversion* c = Find(name)) name = c->to;
}

float AsciiExportModifier::GetFactor(const qstring& name) const
{
    const Conversion* c = Find(name);
    return c ? c->factor : 1.0f;
}

} // namespace tarvik
