// Small helpers shared by the render tests.
#pragma once

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

} // namespace rtest
} // namespace tarvik
