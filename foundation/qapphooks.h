// What the foundation takes from the application object, when a program has one.
//
// The foundation never links against the toolkit. A program that creates its application object
// fills these hooks at start-up; a console program such as sgf2ascii leaves the pointer null, and
// every user of it tests for null first, exactly where it would ask the application.
#pragma once

namespace tarvik {

class QVirtualFileSystem;
class QLanguage;

struct QAppHooks {
    const char* (*GetName)();   // the application's name for log lines
    void* (*GetBoxOwner)();     // native window that owns message boxes, or null
    void (*PrepareForBox)();    // hides a full-screen main window, which would cover a box
    QVirtualFileSystem* (*GetFileSystem)(); // the application's archives, or null
    QLanguage* (*GetLanguage)();            // the current language table, or null
    void (*ShowTextDialog)(const char* title, const char* text); // a modal text box with an OK button
};

extern const QAppHooks* qappHooks; // null while no application object exists

} // namespace tarvik
