#include "foundation/qsplit.h"

#include "foundation/qeval.h"
#include "foundation/qmessage.h"

#include <cstring>
#include <string>

namespace tarvik {

namespace {

const char* Separators(int type)
{
    switch (type) {
    case QSplit::QSPLIT_WHITE: return " \t\n";
    case QSplit::QSPLIT_SEMICOLON: return ";";
    case QSplit::QSPLIT_COMMA: return ",";
    case QSplit::QSPLIT_TAB: return "\t\n";
    case QSplit::QSPLIT_SLASH: return "/";
    case QSplit::QSPLIT_EQUALS: return "=";
    default: return nullptr;
    }
}

bool IsHex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

} // namespace

QSplit::QSplit(const char* text, int type, int splitFlags, int keyMode)
    : count(0), flags(splitFlags), capacity(0), names(nullptr), values(nullptr)
{
    if (!text) text = "";
    if (type == QSPLIT_AMPERSAND) {
        SplitAmpersand(text);
    } else if (const char* seps = Separators(type)) {
        const char* p = text;
        if (flags & QSPLIT_KEEP_EMPTY) {
            for (const char* sep; (sep = std::strpbrk(p, seps)) != nullptr; p = sep + 1) Add(p, sep);
        } else {
            for (;;) {
                p += std::strspn(p, seps);
                if (!*p) break;
                size_t n = std::strcspn(p, seps);
                Add(p, p + n);
                p += n;
            }
        }
    } else {
        QWARNING("QSplit: unknown split type %d", type);
    }

    if (keyMode != KEYMODE_PLAIN && type != QSPLIT_AMPERSAND) {
        for (int i = 0; i < count; i++) {
            int at = values[i]->FindChar('=');
            if (at < 0) continue;
            *names[i] = values[i]->GetSubstring(0, at - 1);
            if (at == 0) names[i]->Empty();
            qstring right = values[i]->GetSubstring(at + 1, -1);
            if (at + 1 >= values[i]->GetLength()) right.Empty();
            *values[i] = right;
        }
    }
}

QSplit::~QSplit()
{
    for (int i = 0; i < capacity; i++) {
        delete names[i];
        delete values[i];
    }
    delete[] names;
    delete[] values;
}

void QSplit::Add(const char* begin, const char* end)
{
    if (count == capacity) {
        // Room grows in steps, every entry allocated ahead, as the fields are few in most lines.
        int grown = capacity < 10 ? 10 : capacity + capacity / 2;
        qstring** n = new qstring*[size_t(grown)];
        qstring** v = new qstring*[size_t(grown)];
        for (int i = 0; i < capacity; i++) {
            n[i] = names[i];
            v[i] = values[i];
        }
        for (int i = capacity; i < grown; i++) {
            n[i] = new qstring;
            v[i] = new qstring;
        }
        delete[] names;
        delete[] values;
        names = n;
        values = v;
        capacity = grown;
    }
    std::string field(begin, end);
    names[count]->Empty();
    *values[count] = field.c_str();
    count++;
}

void QSplit::AddField(const char* value)
{
    if (!value) value = "";
    Add(value, value + std::strlen(value));
}

void QSplit::SplitAmpersand(const char* text)
{
    if (*text == '&') text++;
    if (!*text) return; // nothing to split
    const char* p = text;
    for (;;) {
        const char* amp = std::strchr(p, '&');
        const char* end = amp ? amp : p + std::strlen(p);
        Add(p, end);
        qstring& name = *names[count - 1];
        qstring& value = *values[count - 1];
        std::string piece = value.cstr();
        size_t eq = piece.find('=');
        if (eq == std::string::npos) {
            QWARNING("QSplit:SplitAmpersand; no '=' in arg '%s'\n", piece.c_str());
            name = piece.c_str();
            value.Empty();
        } else {
            name = piece.substr(0, eq).c_str();
            std::string decoded;
            for (size_t i = eq + 1; i < piece.size(); i++) {
                char c = piece[i];
                if (c == '+') {
                    decoded += ' ';
                } else if (c == '%' && i + 2 < piece.size() + 0 && IsHex(piece[i + 1]) && IsHex(piece[i + 2])) {
                    char hex[4] = {'$', piece[i + 1], piece[i + 2], 0};
                    decoded += char(Eval(hex));
                    i += 2;
                } else {
                    decoded += c;
                }
            }
            value = decoded.c_str();
        }
        if (!amp) break;
        p = amp + 1;
    }
}

const qstring& QSplit::GetValue(int n) const
{
    static const qstring empty;
    return n >= 0 && n < count ? *values[n] : empty;
}

const qstring& QSplit::GetName(int n) const
{
    static const qstring empty;
    return n >= 0 && n < count ? *names[n] : empty;
}

} // namespace tarvik
