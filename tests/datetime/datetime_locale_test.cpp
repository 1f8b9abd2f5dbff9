#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>
#include <vector>

#include "datetime/LDateTime.h"
#include "datetime/LDateTimeFields.h"
#include "local_zone.h"
#include "tests/support/TemporaryFolder.h"

namespace {

TEST(DateOrder, OfADateFormat) {
    // Each list by its order; in some a token is missing, which then stands before everything.
    const std::vector<const char*> formats[] = {
        {"%m/%d/%Y", "%a %D", "%Y %D", "%B %e %y", "%h %d %y", "%e %m %d %y", "%d %Y", "%Y %d"},
        {"%d.%m.%Y", "%e %b %Y", "%d %h %y", "%b %d %e %m %y", "%m %Y", "%y", ""},
        {"%Y/%m/%d", "%y-%b-%e", "%m %d"}};
    for (int order = 0; order < 3; ++order) {
        for (const char* format : formats[order]) EXPECT_EQ(LDateOrderOfFormat(format), order) << format;
    }
}

/// Three real locales, compiled by this test from the C library's sources.
class LocaleOrder : public testing::Test {
  protected:
    void SetUp() override { setenv("LOCPATH", folder_.path().c_str(), 1); }
    void TearDown() override { unsetenv("LOCPATH"); }
    bool Compile(const std::string& name) {
        const std::string command =
            "localedef -i " + name + " -f UTF-8 '" + (folder_ / (name + ".UTF-8")) + "' >/dev/null 2>&1";
        return std::system(command.c_str()) == 0;
    }

  private:
    TemporaryFolder folder_;
};

/// What a process that lives in `locale` reads and writes; ends the process with the number of the first wrong row. A
/// row is "typed > what it sets", with "-" for a text that is refused and nothing for one that unsets the value.
void CheckDatesAndExit(const char* locale, int order, const char* shortDate, const std::vector<std::string>& rows) {
    if (std::setlocale(LC_ALL, locale) == nullptr) std::exit(100);
    if (LDateTime::DateFormatOrder() != order || LGetLocaleDateFormatOrder() != order) std::exit(101);
    char text[260];
    LDateTime value;
    LDateTime::SetDateTime(value.seconds, 2015, 5, 1, 9, 3, 7);
    value.GetDateLocalFormat(text);
    if (std::string(text) != shortDate) std::exit(102);
    std::setlocale(LC_ALL, "C");
    if (LDateTime::DateFormatOrder() != order) std::exit(103);  // kept for the life of the process
    if (!value._SetTextDate(nullptr) || value.seconds != 0) std::exit(104);

    int number = 1;
    for (const std::string& row : rows) {
        const std::string expected = row.substr(row.find('>') + 2);
        LDateTime::SetDateTime(value.seconds, 2001, 2, 3, 0, 0, 0);
        const bool isSet = value._SetTextDate(row.substr(0, row.find(" >")).c_str());
        value.GetDateInLocalFormat(text);
        if (isSet == (expected == "-") || text != (isSet ? expected : "2001-02-03")) std::exit(number);
        ++number;
    }
    std::exit(0);
}

TEST_F(LocaleOrder, TypedDatesFollowTheLocale) {
    if (!Compile("en_US") || !Compile("de_DE") || !Compile("hu_HU")) {
        GTEST_SKIP() << "localedef or the locale sources (package locales) are missing";
    }
    const LocalZone local("Australia/Lord_Howe");
    const std::string beyond = std::string("1.5.99999999999999999999 > ") + (sizeof(long) < 8 ? "-" : "");
    EXPECT_EXIT(
        CheckDatesAndExit("de_DE.UTF-8", 1, "01/05/15",
                          {"1/5/2015 > 2015-05-01", "01.05.15 > 2015-05-01", "1/5/2015-3 > 2015-05-01", "15 > -",
                           "1:5\\15 > 2015-05-01", "31.2.2015 > 2015-03-03", "1.5.2015.7 > 2015-05-01", "- > -",
                           " 1 a5.0 5.1x5 > 2015-05-15", "1.0.2015 > 2014-12-01", "1.5 > 2000-05-01", "/ > -",
                           "1..2015 > -", "letters > ", " > ", beyond}),
        testing::ExitedWithCode(0), "");
    EXPECT_EXIT(CheckDatesAndExit("en_US.UTF-8", 0, "05/01/15",
                                  {"5/1/2015 > 2015-05-01", "5 > 2000-05-01", "/1/15 > -", "12-31-15 > 2000-12-01"}),
                testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        CheckDatesAndExit("hu_HU.UTF-8", 2, "15/05/01",
                          {"2015.05.01 > 2015-05-01", "15/5 > 2015-05-01", "2015 > -", "99/12/31 > 1999-12-31"}),
        testing::ExitedWithCode(0), "");
}

}  // namespace
