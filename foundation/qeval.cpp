#include "foundation/qeval.h"

#include "foundation/qmessage.h"

namespace tarvik {

namespace {

const int END = 256, PUSH = 257, NEGATE = 258, COMPLEMENT = 259;
enum { MAX_PROGRAM = 40, MAX_DEPTH = 200 };

struct Entry {
    int op;
    uint32_t value;
};

// The evaluator's state.
const char* text;
int pos;
int ch; // the lookahead; END at the end of the text
uint32_t lastNumber;
Entry program[MAX_PROGRAM];
int programLength;
int32_t stack[MAX_PROGRAM];
int depth;
bool overflow;

// Steps to the next character that isn't a blank.
void Next()
{
    if (ch == END) return;
    do pos++;
    while (text[pos] == ' ');
    ch = text[pos] ? static_cast<unsigned char>(text[pos]) : END;
}

// Steps one character; inside a number a blank is a character like any other, and ends it.
void NextRaw()
{
    if (ch == END) return;
    pos++;
    ch = text[pos] ? static_cast<unsigned char>(text[pos]) : END;
}

void Stop() { ch = END; }

void Emit(int op, uint32_t value = 0)
{
    if (programLength >= MAX_PROGRAM) {
        overflow = true;
        Stop();
        return;
    }
    program[programLength++] = Entry{op, value};
}

int HexDigit(int c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool StartsNumber(int c) { return (c >= '0' && c <= '9') || c == '$' || c == '#'; }

void ReadNumber()
{
    uint32_t v = 0;
    if (ch == '$' || ((ch == '0') && (text[pos + 1] == 'x' || text[pos + 1] == 'X'))) {
        if (ch == '0') NextRaw();
        NextRaw();
        for (int d; (d = HexDigit(ch)) >= 0; NextRaw()) v = v * 16 + uint32_t(d);
    } else if (ch == '#') {
        NextRaw();
        for (; ch == '0' || ch == '1'; NextRaw()) v = v * 2 + uint32_t(ch - '0');
    } else if (ch == '0') {
        NextRaw();
        for (; ch >= '0' && ch <= '7'; NextRaw()) v = v * 8 + uint32_t(ch - '0');
    } else {
        for (; ch >= '0' && ch <= '9'; NextRaw()) v = v * 10 + uint32_t(ch - '0');
    }
    if (ch == ' ') Next();
    lastNumber = v;
}

void Expression();

void Factor()
{
    if (++depth > MAX_DEPTH && !StartsNumber(ch)) { // a number is a leaf: only brackets and prefixes nest
        Stop();
    } else if (ch == '(') {
        Next();
        Expression();
        if (ch == ')') Next(); // a missing ')' isn't noticed: the text simply ends
    } else if (StartsNumber(ch)) {
        ReadNumber();
        Emit(PUSH, lastNumber);
    } else if (ch == '+' || ch == '-' || ch == '~') {
        // A prefix takes a whole expression behind it: -2+3 is -(2+3).
        int op = ch;
        Next();
        Expression();
        if (op == '-') Emit(NEGATE);
        else if (op == '~') Emit(COMPLEMENT);
    } else {
        Stop(); // fits nowhere: the expression ends here
    }
    depth--;
}

void Product()
{
    Factor();
    while (ch == '*' || ch == 'x' || ch == '/' || ch == '%') {
        int op = ch == 'x' ? '*' : ch;
        Next();
        Factor();
        Emit(op);
    }
}

void Sum()
{
    Product();
    while (ch == '+' || ch == '-') {
        int op = ch;
        Next();
        Product();
        Emit(op);
    }
}

void AndLevel()
{
    Sum();
    while (ch == '&' || ch == '^') {
        int op = ch;
        Next();
        Sum();
        Emit(op);
    }
}

void Expression()
{
    AndLevel();
    while (ch == '|') {
        Next();
        AndLevel();
        Emit('|');
    }
}

// Runs the program. 'whole' receives the value the stack held the last time it held exactly one:
// the value of the longest leading part of the program that forms a whole expression.
int32_t Run(int32_t* whole)
{
    int sp = 0;
    *whole = 0;
    for (int i = 0; i < programLength; i++) {
        if (sp == 1) *whole = stack[0];
        const Entry& e = program[i];
        if (e.op == PUSH) {
            stack[sp++] = int32_t(e.value); // at most one push per entry: never past the stack
            continue;
        }
        if (e.op == NEGATE || e.op == COMPLEMENT) {
            if (sp < 1) continue;
            uint32_t top = uint32_t(stack[sp - 1]);
            stack[sp - 1] = int32_t(e.op == NEGATE ? 0u - top : ~top);
            continue;
        }
        if (sp < 2) continue;
        uint32_t r = uint32_t(stack[--sp]);
        uint32_t l = uint32_t(stack[sp - 1]);
        int32_t sr = int32_t(r), sl = int32_t(l);
        uint32_t v;
        switch (e.op) {
        case '+': v = l + r; break;
        case '-': v = l - r; break;
        case '*': v = l * r; break;
        case '/': v = sr == 0 ? 0 : (sr == -1 ? 0u - l : uint32_t(sl / sr)); break;
        case '%': v = sr == 0 || sr == -1 ? 0 : uint32_t(sl % sr); break;
        case '&': v = l & r; break;
        case '^': v = l ^ r; break;
        case '|': v = l | r; break;
        default: sp++; continue; // unknown operations are skipped
        }
        stack[sp - 1] = int32_t(v);
    }
    if (sp == 1) *whole = stack[0];
    return sp > 0 ? stack[sp - 1] : 0;
}

} // namespace

int32_t Eval(const char* input)
{
    if (!input) {
        QWARNING("Eval() is passed 0-pointer");
        return 0;
    }
    text = input;
    pos = -1;
    ch = 0;
    programLength = 0;
    depth = 0;
    overflow = false;
    lastNumber = 0;
    Next();
    Expression();
    int32_t whole;
    int32_t result = Run(&whole);
    if (!overflow) return result;
    QWARNING("Eval(): '%s' needs more than %d numbers and operators; the rest is ignored", input,
             int(MAX_PROGRAM));
    return whole;
}

} // namespace tarvik
