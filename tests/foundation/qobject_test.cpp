#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qobject.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace tarvik;

namespace {

class Probe : public QObject {
public:
    const char* ClassName() const override { return "Probe"; }
};

// What DbgReport must print for 'object'.
std::string Expected(const QObject* object, const char* name, const char* className)
{
    char line[512];
    std::snprintf(line, sizeof line, "@%p %s (class %s)\n", static_cast<const void*>(object), name, className);
    return line;
}

std::string ReportOf(const QObject& object)
{
    testing::internal::CaptureStderr();
    object.DbgReport();
    return testing::internal::GetCapturedStderr();
}

} // namespace

TEST(QObjectTest, WithoutNameGivesPlaceholder)
{
    QObject o;
    EXPECT_STREQ(o.GetName(), "<unnamed_QObject>");
    EXPECT_STREQ(o.ClassName(), "QObject");
}

TEST(QObjectTest, SetNameKeepsItsOwnCopy)
{
    QObject o;
    char name[] = "first";
    o.SetName(name);
    name[0] = 'X';
    EXPECT_STREQ(o.GetName(), "first");
    EXPECT_NE(o.GetName(), name);
    o.SetName("second");
    EXPECT_STREQ(o.GetName(), "second");
}

TEST(QObjectTest, NullNameGivesNullNamed)
{
    QObject o;
    o.SetName(nullptr);
    EXPECT_STREQ(o.GetName(), "<null-named>");
    o.SetName("back");
    o.SetName(nullptr);
    EXPECT_STREQ(o.GetName(), "<null-named>");
}

TEST(QObjectTest, NameIsFreedWithTheObject)
{
    int blocks = qGetAllocCount();
    {
        QObject o;
        o.SetName("one");
        o.SetName("two"); // the first copy goes at once
        EXPECT_EQ(qGetAllocCount(), blocks + 1);
    }
    EXPECT_EQ(qGetAllocCount(), blocks);
}

TEST(QObjectTest, DbgReportFormat)
{
    QObject unnamed;
    EXPECT_EQ(ReportOf(unnamed), Expected(&unnamed, "<unnamed_QObject>", "QObject"));

    Probe probe;
    probe.SetName("probe one");
    const QObject& base = probe;
    EXPECT_EQ(ReportOf(base), Expected(&probe, "probe one", "Probe"));
}

TEST(QObjectTest, QFileIsAQObjectNamedAfterItsFile)
{
    tarvik::test::TempDir dir(true);
    QFile file("missing.dat", QFile::READ);
    const QObject& base = file;
    EXPECT_STREQ(base.ClassName(), "QFile");
    EXPECT_STREQ(base.GetName(), "missing.dat");
    EXPECT_EQ(ReportOf(base), Expected(&file, "missing.dat", "QFile"));

    char block[] = "x";
    QFile wrapped("in memory", block, 1);
    EXPECT_EQ(ReportOf(wrapped), Expected(&wrapped, "in memory", "QFile"));
}
