// QDlgFile: asks for a file through the platform's file question (in a program of this toolkit, the
// toolkit's own QFileDialog; a program of another toolkit installs its own), and remembers per
// purpose, in a QInfo tree under "qfiledlg.<name>.*", the folder and the name chosen last time.
//
// The process's current directory is the same after the call as before it, whatever the user
// browsed to. The memory is written only when the caller asks for the path ('outPath' not null).
#pragma once

#include <cstdint>

namespace tarvik {

class QInfo;
class QSplit;

enum : int { QDLGFILE_MAX_PATH = 2600, QDLGFILE_MAX_NAME = 260 };

// 'title' also picks the kind: one that contains "xport" or "ave" asks for a name to write to.
// 'outPath' (QDLGFILE_MAX_PATH characters) gets the chosen path, 'outDir' the folder; either may be
// null. With 'multi' several files may be chosen: 'multi' receives their names, and both buffers
// the folder. True when the user chose; on cancel nothing is written anywhere.
bool QDlgFile(const char* title, QInfo* info, const char* name, const char* initialDir, char* outPath,
              char* outDir, uint32_t word, QSplit* multi);

// The filter text of the question: for a "*.ext" value, "EXT files (*.ext)", then all files; for
// anything else all files alone. Zero-separated pairs ending in two zeros; 'out' holds 'size' bytes.
void QDlgFileFilter(const char* value, char* out, int size);

} // namespace tarvik
