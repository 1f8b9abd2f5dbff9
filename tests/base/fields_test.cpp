// Fields cut out of text: tables and the 259-character boundary. That items written by the rules read back is checked
// by the fuzz target `fields`, over its kept corpus as well.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/LStringParser.h"

namespace {

TEST(Fields, TokensAreCutAt259AndCountedWhole) {
    for (const size_t length : {0U, 1U, 258U, 259U, 260U, 261U, 300U}) {
        const std::string token(length, 'a');
        char out[260];
        EXPECT_EQ(LParseGetToCharacters<char>((token + ",b").c_str(), ";,", out), length);
        EXPECT_EQ(out, token.substr(0, 259));
        EXPECT_EQ(LParseGetToCharacters<char>(token.c_str(), "", out), length);
        const std::string text = token + ".13";
        LStringParserTemplate<char> parser(text.c_str());
        for (const char* expected : {token.c_str(), "13", "", ""}) {
            parser.GetToCharacterAndSkip(".", out);
            EXPECT_EQ(out, std::string(expected).substr(0, 259));
        }
        EXPECT_EQ(*parser.cursor, 0);
    }
}

TEST(Fields, TextBetweenMarkers) {
    struct Row {
        const char *text, *start, *end;
        unsigned long size;
        bool found;
        const char* field;
    };
    for (const Row& row :
         {Row{"<a>text</a>", "<a>", "</a>", 260, true, "text"}, Row{"<a></a>", "<a>", "</a>", 9, true, ""},
          Row{"<a>text", "<a>", "</a>", 260, true, "text"}, Row{"<a>text", "<a>", "</a>", 5, true, "text"},
          Row{"<a>text</a>", "<a>", "</a>", 4, true, "tex"}, Row{"<a>text", "<a>", "</a>", 4, true, "tex"},
          Row{"</a><a>x</a>", "<a>", "</a>", 9, true, "x"}, Row{"text", "<a>", "</a>", 9, false, ""},
          Row{"<a>text", "<a>", "", 9, true, ""}, Row{"<a>text", "<a>", "</a>", 1, true, ""},
          Row{"abc", "", "c", 9, true, "ab"}, Row{"<a>x", "<a>", "<", 0, true, "untouched"}}) {
        std::vector<char> out(row.size);
        char untouched[] = "untouched";
        char* target = row.size == 0 ? untouched : out.data();
        EXPECT_EQ(LStringFindTextField(row.text, row.start, row.end, target, row.size), row.found) << row.text;
        EXPECT_STREQ(target, row.field) << row.text << " into " << row.size;
    }
}

TEST(Fields, ItemsOfALine) {
    struct Row {
        const char* line;
        unsigned long size;
        std::vector<std::string> items;  // up to the end
        char stop;
    };
    for (const Row& row : {Row{" a , \"b, c\" ,,d", 260, {"a", "b, c", "", "d"}, 0},
                           Row{"a,b\r\nc", 260, {"a", "b"}, '\r'}, Row{"a b ,c\nd", 260, {"a b", "c"}, '\n'},
                           Row{"\"  a  \" , ", 260, {"  a  ", ""}, 0}, Row{"x\" y \"z,\" \"", 260, {"x y z", " "}, 0},
                           Row{"abcdef,ghi", 4, {"abc", "ghi"}, 0}, Row{"ab  c,d", 4, {"ab", "d"}, 0},
                           Row{"abc,d", 1, {"", ""}, 0}, Row{"\"a,b", 260, {"a,b"}, 0}, Row{"", 260, {}, 0}}) {
        unsigned long pos = 0;
        std::vector<char> out(row.size);
        for (const std::string& item : row.items) {
            EXPECT_EQ(GetCSVListItem(row.line, pos, out.data(), row.size), !item.empty()) << row.line;
            EXPECT_EQ(out.data(), item) << row.line;
        }
        for (int again = 0; again < 2; ++again) EXPECT_FALSE(GetCSVListItem(row.line, pos, out.data(), row.size));
        EXPECT_EQ(row.line[pos], row.stop) << row.line;
    }
    unsigned long pos = 0;
    EXPECT_FALSE(GetCSVListItem("abc,d", pos, nullptr, 0));
    EXPECT_EQ(pos, 4U);
}

TEST(Fields, ArgumentsOfACommandLine) {
    struct Row {
        const char* line;
        std::vector<std::string> arguments;
    };
    for (const Row& row : {Row{"prog a \"b c\" d\\ e", {"a", "b c", "d e"}}, Row{"prog", {}}, Row{"", {}},
                           Row{" \t\nprog  a\tb\n c ", {"a\tb\n", "c"}}, Row{"p a\"b c\"d", {"ab c", "d"}},
                           Row{"p \\a \\\\ \\\" x\"", {"\\a", "\\ \\ x"}}, Row{"p a \"\" b", {"a"}},
                           Row{"p \"a b", {"a b"}}, Row{"p a\\", {"a\\"}}, Row{"p \x01\x1F\xC3\xA9", {"\xC3\xA9"}}}) {
        LCommandLineArgumentStringExpander expander(row.line);
        EXPECT_EQ(expander.GetArgumentCount(row.line), static_cast<int>(row.arguments.size())) << row.line;
        expander.NextArgument();
        for (const std::string& argument : row.arguments) {
            EXPECT_TRUE(expander.NextArgument()) << row.line;
            EXPECT_STREQ(LUTF8StringLongRef(expander.argument), argument.c_str()) << row.line;
            EXPECT_GT(expander.argument.capacity, argument.size());
        }
        EXPECT_FALSE(expander.NextArgument()) << row.line;
    }
}

}  // namespace
