// QTextDialog: a modal question with OK, or OK and Cancel, answered in a nested event loop
// (Execute). QTextMessage puts such a question from code that holds no window.
//
// The nested loop keeps its answer in process-wide state, so one QTextDialog runs at a time; with a
// state manager the loop runs in a state named "textDlg", which must not be entered twice.
#pragma once

#include "toolkit/qdialog.h"

namespace tarvik {

class QButton;
class QLabel;

enum : int { QTDF_OK_ONLY = 1 }; // QTextDialog flag: only an OK button, in the middle

class QTextDialog : public QDialog {
public:
    QTextDialog(QWindow* parent, QRect* r, const char* title, const char* text, int flags);
    ~QTextDialog() override;

    const char* ClassName() const override { return "QTextDialog"; }
    int Execute() override; // 1 for OK; 2 for Cancel or a close

    QButton* okButton;     // owned
    QButton* cancelButton; // owned; null with QTDF_OK_ONLY
    QLabel* label;         // owned
};

// Asks with a QTextDialog over the shell, at 'r' (null: 100, 150, 300 by 160); 'okText' and
// 'cancelText' replace the captions when either is given. 1 for OK, 2 for Cancel or a close.
// Without an application object, or without its shell, the question goes to the platform's box
// instead (the console when there is no display) and the answer is mapped the same way.
int QTextMessage(const char* title, const char* text, int flags, QRect* r, const char* okText,
                 const char* cancelText);

} // namespace tarvik
