// Small helpers shared by the render tests.
#pragma once

#include "render/dglobal.h"
#include "toolkit/qapp.h"
#include "toolkit/qglcontext.h"
#include "toolkit/qwindow.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvik {
namespace rtest {

// Whether 'text' (a captured report stream) holds 'part'; shows the whole text when not.
inline testing::AssertionResult HasText(const std::string& text, const std::string& part)
{
    if (text.find(part) != std::string::npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "\"" << part << "\" not in:\n" << text;
}

// A fresh render state on a new application whose shell is a GL window of w x h, its context
// current. What it reported goes to 'reports'; false when the window or its context is missing.
inline bool MakeGLShell(const char* appName, int w, int h, std::string* reports)
{
    d3FreeDGlobal();
    testing::internal::CaptureStderr();
    new QApp(appName);
    app->shell = new QWindow(nullptr, 0, 0, w, h);
    app->shell->SetFlags(QWF_X);
    bool made = app->shell->Create();
    d3GetDGlobal(); // registered with the application, so no warning
    *reports = testing::internal::GetCapturedStderr();
    return made && QGLContext::GetCurrent();
}

} // namespace rtest
} // namespace tarvik
