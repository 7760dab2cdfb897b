// QLanguage: lookups in a table and its further table, the default, and the "?key?" answer.
#include "foundation/qapphooks.h"
#include "foundation/qlanguage.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace tarvik;

namespace {

QLanguage* hookedLanguage;
QLanguage* HookedLanguage() { return hookedLanguage; }

} // namespace

TEST(QLanguageTest, FirstEntryWithTheKeyAnswers)
{
    auto lang = std::make_unique<QLanguage>();
    ASSERT_TRUE(lang->Add("misc.ok", "Okay"));
    ASSERT_TRUE(lang->Add("misc.ok", "Second"));
    ASSERT_TRUE(lang->Add("misc.cancel", "Cancel"));
    EXPECT_STREQ(lang->Get("misc.ok"), "Okay");
    EXPECT_STREQ(lang->Get("misc.ok", "OK"), "Okay");
    EXPECT_STREQ(lang->Get("misc.cancel"), "Cancel");
    EXPECT_STREQ(lang->Get("MISC.OK", "def"), "def"); // keys compare exactly
}

TEST(QLanguageTest, MissingKeyGivesDefaultOrQuestionMarks)
{
    auto lang = std::make_unique<QLanguage>();
    const char* def = "OK";
    EXPECT_EQ(lang->Get("misc.ok", def), def);
    EXPECT_STREQ(lang->Get("misc.ok"), "?misc.ok?");
    const char* a = lang->Get("a");
    const char* b = lang->Get("b");
    EXPECT_EQ(a, b); // one static buffer
    EXPECT_STREQ(a, "?b?");
}

TEST(QLanguageTest, FurtherTableIsAskedWithoutTheDefault)
{
    auto base = std::make_unique<QLanguage>();
    auto local = std::make_unique<QLanguage>();
    base->Add("misc.ok", "OK from base");
    base->Add("misc.yes", "Yes from base");
    local->Add("misc.yes", "Ja");
    local->SetFurther(base.get());
    EXPECT_STREQ(local->Get("misc.yes", "d"), "Ja");
    EXPECT_STREQ(local->Get("misc.ok", "d"), "OK from base");
    // Neither has it: the further table answers the question it was given, which had no default.
    EXPECT_STREQ(local->Get("misc.no", "d"), "?misc.no?");
    EXPECT_STREQ(local->Get("misc.no"), "?misc.no?");
    EXPECT_STREQ(base->Get("misc.no", "d"), "d");
}

TEST(QLanguageTest, LongKeyIsCutToTheBuffer)
{
    auto lang = std::make_unique<QLanguage>();
    std::string key(3000, 'k');
    std::string answer = lang->Get(key.c_str());
    EXPECT_EQ(answer.size(), 1023u);
    EXPECT_EQ(answer.substr(0, 3), "?kk");
}

TEST(QLanguageTest, ApplicationHoldsTheCurrentTable)
{
    EXPECT_EQ(QGetLanguage(), nullptr); // no application
    auto lang = std::make_unique<QLanguage>();
    static QAppHooks hooks{};
    qappHooks = &hooks;
    EXPECT_EQ(QGetLanguage(), nullptr); // an application without the hook
    hooks.GetLanguage = HookedLanguage;
    hookedLanguage = lang.get();
    EXPECT_EQ(QGetLanguage(), lang.get());
    qappHooks = nullptr;
    hookedLanguage = nullptr;
    EXPECT_EQ(QGetLanguage(), nullptr);
}
