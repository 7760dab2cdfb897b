// Counted allocation wrappers, counted stream wrappers and small text helpers.
//
// Every block from qmalloc, qcalloc and qstrdup goes back through qfree. The counters are bookkeeping
// for leak hunts: nothing in the tree reads them to decide anything. Allocation failures are not
// reported here; each caller looks at the result.
#pragma once

#include <cstddef>
#include <cstdio>

namespace tarvik {

void* qmalloc(size_t size);
void* qcalloc(size_t size); // zeroed
void qfree(void* p);
char* qstrdup(const char* text); // null if the allocation fails
int qstrlen(const char* text);
char* qstrlwr(char* text); // in place, standard tolower; returns text
char* qstrupr(char* text); // in place, Latin-1 aware; returns text
int qtoupper(int ch);      // Latin-1 aware upper-casing of one 8-bit character

FILE* qfopen(const char* name, const char* mode);
int qfclose(FILE* stream); // fclose's result; a null stream is reported, ignored and gives EOF
FILE* qfopenmem(const void* data, size_t size); // a counted stream reading the bytes, which must outlive it

int qGetAllocCount();    // live blocks of the wrappers above
int qGetOpenFileCount(); // streams of qfopen not yet closed

// Fault injection for tests: the Nth allocation from now (1 = the next) fails, 0 switches it off.
void qSetAllocFailure(int nth);

} // namespace tarvik
